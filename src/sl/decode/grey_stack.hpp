// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>

namespace vorn::mv::sl {

/// The images of one scan as the decoder reads them.
struct GreyStack {
  std::vector<cv::Mat> images; ///< all CV_8UC1 or all CV_16UC1
  int white = 255;             ///< level of `images` from which on a pixel is clipped
  double unit = 1.0;           ///< what one level of `images` is in the images that were given

  /// Levels of `images` in one grey level of 8 bits: settings are in those.
  double perGrey() const { return white / 255.0; }
};

/// Images of any depth and colour as the decoder reads them. 8 and 16 bits of one channel stay as they are.
/// Real numbers become 16 bits, of which white is the greatest: a step of that is far below any sensor's
/// noise. Of a colour pixel that is clipped in one channel the grey one is clipped, too.
/// @param images     8- or 16-bit unsigned or floating-point pixels, one channel or three in blue, green, red
/// @param whiteLevel of the sensor, in the images' own levels; 0 to find it in the first four
/// @throws Exception of context "decode" for other images, for such as differ in size or type, or for a white
/// level that their type does not hold
GreyStack greyStack(std::vector<cv::Mat> const& images, double whiteLevel);

/// @throws Exception of context "decode" for images that are empty or differ in size or type
void requireOneKind(std::vector<cv::Mat> const& images);

} // namespace vorn::mv::sl
