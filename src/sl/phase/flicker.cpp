// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/phase/flicker.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include <opencv2/core.hpp>

#include "core/parallel.hpp"
#include "core/simd.hpp"

namespace vorn::mv::sl {

namespace {

/// One row in so many is enough: millions of pixels overdetermine three numbers.
constexpr int rowStep = 8;
/// A correction beyond this is no flicker.
constexpr double largestFactor = 0.2;
/// Weight of the assumption that there is no flicker: that of so many squared grey levels. It decides only
/// where the images do not.
constexpr double prior = 1e5;

constexpr int steps = 4;
/// The sign of each step in I0 - I1 + I2 - I3.
constexpr int sign[steps] = {1, -1, 1, -1};

/// Sums over pixels of the products of their steps with each other; whole numbers, so exact in any order.
using Products = std::array<std::array<std::int64_t, steps>, steps>;

void addRow(uchar const* const* rows, uchar const* mask, int n, Products& products) {
  for (int x = 0; x < n; ++x) {
    if (mask[x] == 0) {
      continue;
    }
    for (int i = 0; i < steps; ++i) {
      for (int j = 0; j <= i; ++j) {
        products[static_cast<std::size_t>(i)][static_cast<std::size_t>(j)] +=
            static_cast<std::int64_t>(rows[i][x]) * rows[j][x];
      }
    }
  }
}

constexpr float twoPi = 6.2831853F;
/// Factors nearer to 1 than this move the phase by less than the rounding of its table.
constexpr float negligible = 2e-5F;

struct CorrectionRow {
  uchar const* i0;
  uchar const* i1;
  uchar const* i2;
  uchar const* i3;
  float* phase;
};

VORN_TARGET_CLONES
void correctRow(CorrectionRow const& row, std::array<float, 4> const& factors, int n) {
  uchar const* const i0 = row.i0;
  uchar const* const i1 = row.i1;
  uchar const* const i2 = row.i2;
  uchar const* const i3 = row.i3;
  float* const phase = row.phase;
  float const f0 = factors[0];
  float const f1 = factors[1];
  float const f2 = factors[2];
  float const f3 = factors[3];
  for (int x = 0; x < n; ++x) {
    float const a0 = i0[x];
    float const a1 = i1[x];
    float const a2 = i2[x];
    float const a3 = i3[x];
    float const sine = a0 - a2;
    float const cosine = a1 - a3;
    float const newSine = f0 * a0 - f2 * a2;
    float const newCosine = f1 * a1 - f3 * a3;
    float const cross = cosine * newSine - sine * newCosine;
    float const dot = cosine * newCosine + sine * newSine;
    // The tangent of the turn, and its arc by the first terms of the series.
    float const tangent = dot > 0.0F ? cross / dot : 0.0F;
    float const turned = phase[x] + (tangent - tangent * tangent * tangent * (1.0F / 3.0F));
    float const notBelow = turned < 0.0F ? turned + twoPi : turned;
    float const wrapped = notBelow >= twoPi ? notBelow - twoPi : notBelow;
    phase[x] = phase[x] >= 0.0F ? wrapped : phase[x];
  }
}

} // namespace

float correctedPhase(int i0, int i1, int i2, int i3, std::array<float, 4> const& factors) {
  float const sine = factors[0] * static_cast<float>(i0) - factors[2] * static_cast<float>(i2);
  float const cosine = factors[1] * static_cast<float>(i1) - factors[3] * static_cast<float>(i3);
  float const angle = std::atan2(sine, cosine);
  return angle < 0.0F ? angle + twoPi : angle;
}

void correctFlicker(std::vector<cv::Mat> const& phaseImages, std::array<float, 4> const& factors,
                    cv::Mat_<float>& phase) {
  if (std::all_of(factors.begin(), factors.end(),
                  [](float factor) { return std::fabs(factor - 1.0F) < negligible; })) {
    return;
  }
  parallelRows(phase.rows, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      correctRow({phaseImages[0].ptr(y), phaseImages[1].ptr(y), phaseImages[2].ptr(y), phaseImages[3].ptr(y),
                  phase[y]},
                 factors, phase.cols);
    }
  });
}

std::array<float, 4> flickerCorrection(std::vector<cv::Mat> const& phaseImages, cv::Mat_<uchar> const& mask) {
  Products products{};
  for (int y = 0; y < mask.rows; y += rowStep) {
    uchar const* const rows[steps] = {phaseImages[0].ptr(y), phaseImages[1].ptr(y), phaseImages[2].ptr(y),
                                      phaseImages[3].ptr(y)};
    addRow(rows, mask[y], mask.cols, products);
  }
  cv::Matx44d gram;
  for (int i = 0; i < steps; ++i) {
    for (int j = 0; j < steps; ++j) {
      auto const row = static_cast<std::size_t>(std::max(i, j));
      auto const column = static_cast<std::size_t>(std::min(i, j));
      gram(i, j) = sign[i] * sign[j] * static_cast<double>(products[row][column]);
    }
  }
  // Factors 1 + B d: the columns of B keep the mean.
  cv::Matx<double, 4, 3> const B(1, 0, 0, 0, 1, 0, 0, 0, 1, -1, -1, -1);
  cv::Vec4d const ones(1, 1, 1, 1);
  cv::Matx33d const normal = B.t() * gram * B + prior * cv::Matx33d::eye();
  cv::Vec3d const d = normal.inv(cv::DECOMP_CHOLESKY) * (-(B.t() * (gram * ones)));
  cv::Vec4d const excess = B * d;
  std::array<float, 4> factors{1.0F, 1.0F, 1.0F, 1.0F};
  if (cv::norm(excess, cv::NORM_INF) <= largestFactor) {
    std::transform(excess.val, excess.val + steps, factors.begin(),
                   [](double value) { return static_cast<float>(1.0 + value); });
  }
  return factors;
}

} // namespace vorn::mv::sl
