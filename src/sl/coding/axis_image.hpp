// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#include <opencv2/core/mat.hpp>

#include "core/parallel.hpp"

/// Pattern images, whose pixels depend on one coordinate alone.
namespace vorn::mv::sl {

/// Which coordinate of a pixel an image codes.
enum class Axis { Row, Column };

inline uchar litWhere(bool condition) {
  return condition ? uchar{255} : uchar{0};
}

/// The nearest integer, ties to even, held to 0..255.
inline uchar roundedLevel(double value) {
  return static_cast<uchar>(std::lrint(std::clamp(value, 0.0, 255.0)));
}

/// The grey level of a fringe at an angle, radians. 128, not 127.5: a full crest saturates.
inline uchar fringeLevel(double angle) {
  return roundedLevel((std::sin(static_cast<float>(angle)) + 1.0) * 128.0);
}

/// The image whose pixel values depend on one coordinate c alone, by the rule value(c).
template <class Value>
cv::Mat makeAxisImage(cv::Size size, Axis axis, Value const& value) {
  cv::Mat image(size, CV_8UC1);
  if (image.empty()) {
    return image;
  }
  auto const width = static_cast<std::size_t>(size.width);
  if (axis == Axis::Column) {
    uchar* const first = image.ptr<uchar>(0);
    for (int x = 0; x < size.width; ++x) {
      first[x] = value(x);
    }
    parallelRows(size.height, [&](int firstRow, int endRow) {
      for (int y = std::max(firstRow, 1); y < endRow; ++y) {
        std::memcpy(image.ptr<uchar>(y), first, width);
      }
    });
  } else {
    parallelRows(size.height, [&](int firstRow, int endRow) {
      for (int y = firstRow; y < endRow; ++y) {
        std::memset(image.ptr<uchar>(y), value(y), width);
      }
    });
  }
  return image;
}

} // namespace vorn::mv::sl
