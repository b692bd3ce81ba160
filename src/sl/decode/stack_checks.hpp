// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>

namespace vorn::mv {

/// Throws std::invalid_argument, saying which image and why, unless all images are CV_8UC1, two-dimensional,
/// not empty and of one size.
void requireImageStack(std::vector<cv::Mat> const& images);

/// Throws std::invalid_argument unless `map` is a two-dimensional matrix of the given type and size. `name`
/// is what the message calls it.
void requireMap(cv::Mat const& map, char const* name, int type, cv::Size size);

/// Throws std::invalid_argument unless `mask` is empty or a CV_8UC1 matrix of the given size.
void requireMask(cv::Mat const& mask, cv::Size size);

/// Whether the two matrices may have bytes in common.
bool mayOverlap(cv::Mat const& a, cv::Mat const& b);

} // namespace vorn::mv
