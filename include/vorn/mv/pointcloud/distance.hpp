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
    /// Of two points whose coordinates differ by (dx, dy, dz).
    static float between(float dx, float dy, float dz) { return std::abs(dx) + std::abs(dy) + std::abs(dz); }
    /// The radius itself.
    static float norm(float radius) { return radius; }
    /// Whether `between` is a squared length.
    static constexpr bool isSquared = false;
    /// Whether `between` is the largest coordinate difference.
    static constexpr bool takesLargest = false;
  };

  /// The squared Euclidean distance, dx^2 + dy^2 + dz^2.
  struct L2 {
    /// Of two points whose coordinates differ by (dx, dy, dz).
    static float between(float dx, float dy, float dz) { return dx * dx + dy * dy + dz * dz; }
    /// The radius squared.
    static float norm(float radius) { return radius * radius; }
    /// Whether `between` is a squared length.
    static constexpr bool isSquared = true;
    /// Whether `between` is the largest coordinate difference.
    static constexpr bool takesLargest = false;
  };

  /// The largest coordinate difference, max(|dx|, |dy|, |dz|).
  struct LInf {
    /// Of two points whose coordinates differ by (dx, dy, dz).
    static float between(float dx, float dy, float dz) {
      return std::max(std::max(std::abs(dx), std::abs(dy)), std::abs(dz));
    }
    /// The radius itself.
    static float norm(float radius) { return radius; }
    /// Whether `between` is a squared length.
    static constexpr bool isSquared = false;
    /// Whether `between` is the largest coordinate difference.
    static constexpr bool takesLargest = true;
  };
};

} // namespace vorn::mv
