// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <opencv2/core.hpp>

namespace vorn::mv {

/// The colour at a place of an image of 8 bits with one or three channels, bilinear.
inline cv::Vec3d colorAt(cv::Mat const& image, cv::Point2f const& at) {
  int const x = std::clamp(static_cast<int>(at.x), 0, std::max(image.cols - 2, 0));
  int const y = std::clamp(static_cast<int>(at.y), 0, std::max(image.rows - 2, 0));
  auto const pixel = [&](int row, int column) {
    row = std::min(row, image.rows - 1);
    column = std::min(column, image.cols - 1);
    return image.channels() == 1 ? cv::Vec3d::all(image.at<uchar>(row, column))
                                 : cv::Vec3d(image.at<cv::Vec3b>(row, column));
  };
  double const u = static_cast<double>(at.x) - x;
  double const v = static_cast<double>(at.y) - y;
  return (pixel(y, x) * (1.0 - u) + pixel(y, x + 1) * u) * (1.0 - v) +
         (pixel(y + 1, x) * (1.0 - u) + pixel(y + 1, x + 1) * u) * v;
}

} // namespace vorn::mv
