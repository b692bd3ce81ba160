// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>

namespace vorn::mv::sl {

/// What a pixel would show under white light: the mean of the four phase images plus the fringe amplitude,
/// CV_8UC1.
/// @param images a scan's stack, the phase images first
cv::Mat whiteLevel(std::vector<cv::Mat> const& images);

} // namespace vorn::mv::sl
