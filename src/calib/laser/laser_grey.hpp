// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/mv/calib/laser_color.hpp>

namespace vorn::mv {

/// An image as laser lines are looked for in it.
struct LaserGrey {
  cv::Mat levels;       ///< CV_8UC1 or CV_16UC1: what stripes are measured in
  cv::Mat bytes;        ///< CV_8UC1: the same in grey levels, which candidates are searched in
  double perGrey = 1.0; ///< levels in one grey level of 8 bits
};

/// 8 bits of one channel stay as they are, and so does the brightest channel of 8 bits; sums of channels are
/// kept in 16 bits. Where a channel that counts is full, the sum is full, too: the middle of an overexposed
/// line is white.
/// @param white level at which the image's pixels are full
/// @throws Exception for other images than `findLaserColor` takes
LaserGrey laserGrey(cv::Mat const& image, LaserColor const& color, double white);

} // namespace vorn::mv
