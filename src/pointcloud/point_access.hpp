// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <opencv2/core/mat.hpp>

namespace vorn::mv {

/// The coordinates of points that follow each other in memory.
struct ContiguousPoints {
  float const* data;

  float const* operator[](std::size_t index) const { return data + 3 * index; }
};

/// The coordinates of points in rows that are `step` bytes apart, numbered row by row.
struct StridedPoints {
  std::uint8_t const* data;
  std::size_t step;
  unsigned columns;

  float const* operator[](std::size_t index) const {
    auto const number = static_cast<unsigned>(index);
    unsigned const row = number / columns;
    // Rows of floats start at a multiple of a float's size.
    return static_cast<float const*>(static_cast<void const*>(data + row * step)) +
           std::size_t{3} * (number - row * columns);
  }
};

/// True when all three coordinates are numbers.
inline bool isFinite(float const* point) {
  // A sum of the coordinates scaled by zero is 0 for numbers and NaN as soon as one is NaN or infinite.
  return (point[0] * 0.0F + point[1] * 0.0F) + point[2] * 0.0F == 0.0F;
}

/// Calls `body` with the fastest access to the cells of a matrix, numbered row by row.
template <class Body>
decltype(auto) withPointAccess(cv::Mat_<cv::Vec3f> const& points, Body const& body) {
  if (points.isContinuous()) {
    return body(ContiguousPoints{points.ptr<float>()});
  }
  return body(StridedPoints{points.data, points.step[0], static_cast<unsigned>(points.cols)});
}

} // namespace vorn::mv
