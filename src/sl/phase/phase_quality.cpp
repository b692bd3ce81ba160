// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/phase_quality.hpp>

#include <algorithm>
#include <cmath>

#include <opencv2/core.hpp>

#include "core/parallel.hpp"
#include "core/simd.hpp"
#include "sl/decode/stack_checks.hpp"

namespace vorn::mv {

namespace {

constexpr double perTwoPi = 1.0 / CV_2PI;
/// The smallest float jump whose excess over 2π is more than π.
constexpr float tooFar = 9.42477798F;
constexpr int blockLength = 512;

float larger(float a, float b) {
  return a > b ? a : b;
}

/// Qualities of `length` pixels, at most `blockLength`, from their own, the upper and the lower row; all
/// pointers at the first of them.
///
/// The excess over 2π is taken of the largest jump alone: rounding keeps the order of the four, so the
/// largest excess is the excess of the largest jump, bit for bit. Each loop is one that compilers vectorise:
/// a selection in the second one would become a branch around its double precision.
VORN_TARGET_CLONES
void gradeBlock(float const* upper, float const* phase, float const* lower, int length,
                float* __restrict quality) {
  float jumps[blockLength];
  for (int x = 0; x < length; ++x) {
    float const p = phase[x];
    float const sideways = larger(std::abs(p - phase[x - 1]), std::abs(p - phase[x + 1]));
    float const upright = larger(std::abs(p - upper[x]), std::abs(p - lower[x]));
    jumps[x] = larger(sideways, upright);
  }
  for (int x = 0; x < length; ++x) {
    auto const excess = static_cast<float>(jumps[x] - CV_2PI);
    quality[x] = static_cast<float>(1.0 - excess * perTwoPi);
  }
  for (int x = 0; x < length; ++x) {
    quality[x] = jumps[x] >= tooFar ? 0.0F : quality[x];
  }
}

VORN_TARGET_CLONES
void clearMasked(uchar const* mask, int length, float* quality) {
  for (int x = 0; x < length; ++x) {
    quality[x] = mask[x] != 0 ? quality[x] : 0.0F;
  }
}

void clearBorder(cv::Mat_<float>& map) {
  map.row(0).setTo(0);
  map.row(map.rows - 1).setTo(0);
  map.col(0).setTo(0);
  map.col(map.cols - 1).setTo(0);
}

} // namespace

void calc_quality(cv::Mat_<float> const& phase, cv::Mat_<float>& quality, cv::Mat const& mask) {
  requireMap(phase, "phase map", CV_32FC1, phase.size());
  requireMask(mask, phase.size());
  cv::Mat_<float> source = phase;
  if (quality.size() != source.size()) {
    quality.create(source.size());
    if (!quality.empty()) {
      clearBorder(quality); // nothing else is written there
    }
  }
  if (mayOverlap(source, quality)) {
    source = source.clone();
  }
  int const inner = source.cols - 2;
  if (inner < 1) {
    return;
  }
  parallelRows(source.rows - 2, [&](int firstRow, int endRow) {
    for (int row = firstRow + 1; row <= endRow; ++row) {
      for (int x = 1; x <= inner; x += blockLength) {
        gradeBlock(source[row - 1] + x, source[row] + x, source[row + 1] + x,
                   std::min(blockLength, inner + 1 - x), quality[row] + x);
      }
      if (!mask.empty()) {
        clearMasked(mask.ptr<uchar>(row) + 1, inner, quality[row] + 1);
      }
    }
  });
}

} // namespace vorn::mv
