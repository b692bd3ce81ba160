// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>

#include <opencv2/core/types.hpp>

namespace vorn::mv {

/// The distance kinds that an octree searches with.
///
/// Each kind measures a difference of coordinates, `between`, and puts a radius on the same scale, `norm`, so
/// that a point is within the radius when `between(...) < norm(radius)`. All arithmetic is in single
/// precision, summed in the order x, y, z. With L2 both sides are squared: no square root is taken.
template <class Point>
struct Distance {
  /// The sum of the coordinate differences, |dx| + |dy| + |dz|.
  struct L1 {
    static float between(float dx, float dy, float dz) { return std::abs(dx) + std::abs(dy) + std::abs(dz); }
    static float norm(float radius) { return radius; }
    static constexpr bool isSquared = false;
    static constexpr bool takesLargest = false;
  };

  /// The squared Euclidean distance, dx^2 + dy^2 + dz^2.
  struct L2 {
    static float between(float dx, float dy, float dz) { return dx * dx + dy * dy + dz * dz; }
    static float norm(float radius) { return radius * radius; }
    static constexpr bool isSquared = true;
    static constexpr bool takesLargest = false;
  };

  /// The largest coordinate difference, max(|dx|, |dy|, |dz|).
  struct LInf {
    static float between(float dx, float dy, float dz) {
      return std::max(std::max(std::abs(dx), std::abs(dy)), std::abs(dz));
    }
    static float norm(float radius) { return radius; }
    static constexpr bool isSquared = false;
    static constexpr bool takesLargest = true;
  };
};

} // namespace vorn::mv
