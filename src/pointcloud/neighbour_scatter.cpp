// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pointcloud/neighbour_scatter.hpp"

#include <algorithm>
#include <limits>

#include "core/simd.hpp"

namespace vorn::mv {

namespace {

VORN_TARGET_CLONES
void fillSquares(float const* __restrict x, float const* __restrict y, float const* __restrict z,
                 std::size_t size, float const* __restrict point, float* __restrict squares) {
  float const px = point[0];
  float const py = point[1];
  float const pz = point[2];
  for (std::size_t i = 0; i < size; ++i) {
    float const dx = x[i] - px;
    float const dy = y[i] - py;
    float const dz = z[i] - pz;
    squares[i] = dx * dx + dy * dy + dz * dz;
  }
}

VORN_TARGET_CLONES
void sumScatter(float const* __restrict x, float const* __restrict y, float const* __restrict z,
                std::size_t size, NeighbourScatter& sums) {
  using S = NeighbourScatter;
  float packs[S::kinds][packSize] = {};
  for (std::size_t first = 0; first < size; first += packSize) {
    for (std::size_t i = 0; i < packSize; ++i) {
      float const dx = x[first + i];
      float const dy = y[first + i];
      float const dz = z[first + i];
      packs[S::X][i] += dx;
      packs[S::Y][i] += dy;
      packs[S::Z][i] += dz;
      packs[S::XX][i] += dx * dx;
      packs[S::XY][i] += dx * dy;
      packs[S::XZ][i] += dx * dz;
      packs[S::YY][i] += dy * dy;
      packs[S::YZ][i] += dy * dz;
      packs[S::ZZ][i] += dz * dz;
    }
  }
  for (int kind = 0; kind < S::kinds; ++kind) {
    std::copy_n(packs[kind], packSize, sums.packs[kind]);
  }
}

VORN_TARGET_CLONES
float nthOf(float const* __restrict values, std::size_t size, int n) {
  for (std::size_t candidate = 0; candidate < size; ++candidate) {
    float const value = values[candidate];
    int below = 0;
    int notAbove = 0;
    for (std::size_t i = 0; i < size; ++i) {
      below += values[i] < value ? 1 : 0;
      notAbove += values[i] <= value ? 1 : 0;
    }
    if (below < n && notAbove >= n) {
      return value;
    }
  }
  return std::numeric_limits<float>::max();
}

} // namespace

void squaresFrom(float const* x, float const* y, float const* z, std::size_t size, float const* point,
                 float* squares) {
  fillSquares(x, y, z, size, point, squares);
}

NeighbourScatter scatterOf(float const* x, float const* y, float const* z, std::size_t size) {
  NeighbourScatter sums;
  sumScatter(x, y, z, size, sums);
  return sums;
}

float nthByCounting(float const* values, std::size_t size, int n) {
  return nthOf(values, size, n);
}

} // namespace vorn::mv
