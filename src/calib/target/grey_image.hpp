// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

namespace vorn::mv {

/// An image as H x W CV_8UC1: grey, and where it has more than 8 bits, stretched linearly so that its darkest
/// and brightest thousandth become 0 and 255. May share the input's pixels.
///
/// @param image H x W, CV_8U, CV_16U, CV_32F or CV_64F, one channel or three in blue, green, red
/// @throws Exception for another type; the caller's name is `context`
cv::Mat greyImage(cv::Mat const& image, char const* context);

} // namespace vorn::mv
