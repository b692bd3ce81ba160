// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/phase_quality.hpp>

#include <cmath>

#include <opencv2/core.hpp>

#include "core/parallel.hpp"
#include "core/simd.hpp"
#include "sl/stack_checks.hpp"

namespace vorn::mv {

namespace {

constexpr double pi = 3.141592653589793;
constexpr double twoPi = 6.283185307179586;
constexpr double perTwoPi = 0.15915494309189535;
constexpr float fullJumpQuality = 0.9998999834F;

float larger(float a, float b) {
  return a > b ? a : b;
}

/// Qualities of `length` pixels from their own, the upper and the lower row; all pointers at the first of
/// them.
///
/// The excess over 2π is taken of the largest jump alone: rounding keeps the order of the four, so the
/// largest excess is the excess of the largest jump, bit for bit.
VORN_TARGET_CLONES
void qualityRow(float const* upper, float const* phase, float const* lower, int length,
                float* __restrict quality) {
  for (int x = 0; x < length; ++x) {
    float const p = phase[x];
    float const jump = larger(larger(std::abs(p - phase[x - 1]), std::abs(p - phase[x + 1])),
                              larger(std::abs(p - upper[x]), std::abs(p - lower[x])));
    auto const excess = static_cast<float>(jump - twoPi);
    auto const graded = static_cast<float>(1.0 - excess * perTwoPi);
    float const bounded = excess > pi ? 0.0F : graded;
    quality[x] = excess == 0.0F ? fullJumpQuality : bounded;
  }
}

VORN_TARGET_CLONES
void clearMasked(uchar const* mask, int length, float* quality) {
  for (int x = 0; x < length; ++x) {
    quality[x] = mask[x] != 0 ? quality[x] : 0.0F;
  }
}

} // namespace

void calc_quality(cv::Mat_<float> const& phase, cv::Mat_<float>& quality, cv::Mat const& mask) {
  requireMap(phase, "phase map", CV_32FC1, phase.size());
  requireMask(mask, phase.size());
  cv::Mat_<float> source = phase;
  quality.create(source.size());
  if (mayOverlap(source, quality)) {
    source = source.clone();
  }
  int const inner = source.cols - 2;
  if (inner < 1) {
    return;
  }
  parallelRows(source.rows - 2, [&](int firstRow, int endRow) {
    for (int row = firstRow + 1; row <= endRow; ++row) {
      qualityRow(source[row - 1] + 1, source[row] + 1, source[row + 1] + 1, inner, quality[row] + 1);
      if (!mask.empty()) {
        clearMasked(mask.ptr<uchar>(row) + 1, inner, quality[row] + 1);
      }
    }
  });
}

} // namespace vorn::mv
