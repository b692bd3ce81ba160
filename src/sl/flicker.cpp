// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/flicker.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include <opencv2/core.hpp>

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
        products[static_cast<std::size_t>(i)][static_cast<std::size_t>(j)] += rows[i][x] * rows[j][x];
      }
    }
  }
}

} // namespace

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
