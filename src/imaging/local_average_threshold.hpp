// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

namespace vorn::mv {

/// How `localAverageThreshold` judges a pixel, and what it makes of it.
struct LocalAverageThreshold {
  int radius;      ///< R: half the side of the window, [1, 128] px
  int percent;     ///< T: the least part of the window's mean, [0, 100]
  uchar passValue; ///< what a pixel becomes that reaches it
  uchar failValue; ///< what any other becomes
};

/// Whether `value` >= windowSum * percent / denominator in whole numbers, without the division: a whole
/// number is at least the floor of a quotient exactly when its successor is greater than the quotient.
constexpr bool reachesPart(int value, int windowSum, int percent, int denominator) {
  return windowSum * percent < (value + 1) * denominator;
}

/// Thresholds each pixel of `input` at a percentage of the mean of the 2R x 2R window around it.
///
/// The window of the pixel (x, y) covers the columns x - R + 1 to x + R and the rows y - R + 1 to y + R; with
/// W its sum, the pixel passes when its value >= W * T / (400 * R * R), the division rounded down. Pixels
/// within R + 1 of the left or top edge, or R of the right or bottom one, are copied: an image smaller than
/// 2R + 2 in either dimension is returned as it is.
///
/// No sum over the whole image is ever formed, so the result is exact for images of any size: the largest
/// number in it is 256 * 400 * R * R. Memory: 2R rows of 16-bit sums a band of rows.
/// @param input  H x W CV_8UC1; may be a region of a larger image, whose other pixels do not count
/// @param output H x W CV_8UC1, allocated when it is not; must not share pixels with `input`
void localAverageThreshold(cv::Mat const& input, LocalAverageThreshold const& rule, cv::Mat& output);

} // namespace vorn::mv
