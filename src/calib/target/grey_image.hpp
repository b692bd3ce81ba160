// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

namespace vorn::mv {

/// A grey image to search, and what it was rounded from.
struct GreyImage {
  /// H x W CV_8UC1. May share the input's pixels.
  cv::Mat bytes;
  /// H x W CV_32FC1 in the same grey levels, neither rounded nor cut off; empty where that would tell no
  /// more.
  cv::Mat deep;

  /// The negative.
  GreyImage inverted() const;
};

/// An image in grey, and where it has more than 8 bits, stretched linearly so that its darkest and brightest
/// thousandth become 0 and 255.
///
/// @param image H x W, CV_8U, CV_16U, CV_32F or CV_64F, one channel or three in blue, green, red
/// @throws Exception for another type; the caller's name is `context`
GreyImage greyImage(cv::Mat const& image, char const* context);

} // namespace vorn::mv
