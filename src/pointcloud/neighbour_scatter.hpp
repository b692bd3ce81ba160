// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace vorn::mv {

/// Numbers are worked on in packs of so many; lists are filled up to whole packs.
constexpr std::size_t packSize = 8;

/// Sums of coordinates and of their products.
struct NeighbourScatter {
  enum Kind { X, Y, Z, XX, XY, XZ, YY, YZ, ZZ, kinds };

  float packs[kinds][packSize];

  double total(Kind kind) const {
    double sum = 0.0;
    for (float const part : packs[kind]) {
      sum += static_cast<double>(part);
    }
    return sum;
  }
};

/// Squared distances from a point (three numbers) of `size` points, whole packs.
void squaresFrom(float const* x, float const* y, float const* z, std::size_t size, float const* point,
                 float* squares);

/// Sums `size` points, whole packs.
NeighbourScatter scatterOf(float const* x, float const* y, float const* z, std::size_t size);

/// The n-th smallest of `size` values, whole packs filled up with what is larger, at least n of them: by
/// counting for each how many are smaller, which for a few dozen takes less than sorting them does.
float nthByCounting(float const* values, std::size_t size, int n);

} // namespace vorn::mv
