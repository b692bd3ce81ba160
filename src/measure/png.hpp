// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <opencv2/core/mat.hpp>

namespace vorn::mv {

/// An image as a PNG file whose data are stored, not compressed: the library brings no codec with it.
/// @param image CV_8UC3, blue, green, red
std::string storedPng(cv::Mat const& image);

} // namespace vorn::mv
