// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/phase/flicker.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>

#include <opencv2/core.hpp>

#include "core/pi.hpp"
#include "core/simd.hpp"

namespace vorn::mv::sl {

namespace {

/// One row in so many is enough: millions of pixels overdetermine three numbers.
constexpr int rowStep = 8;
/// A correction beyond this is no flicker.
constexpr double largestFactor = 0.2;
/// Weight of the assumption that there is no flicker: that of so many squared grey levels of 8 bits. It
/// decides only where the images do not.
constexpr double prior = 1e5;

constexpr std::size_t steps = 4;
/// The sign of each step in I0 - I1 + I2 - I3.
constexpr int sign[steps] = {1, -1, 1, -1};

/// Sums over pixels of the products of their steps with each other; whole numbers, so exact in any order.
using Products = std::array<std::array<std::int64_t, steps>, steps>;

/// Pixels of a row whose sums are taken at a time: a sum of so many products of bytes fits 32 bits.
constexpr int chunk = 512;

/// What levels of pixels of type T and the sums of their products are reckoned in.
template <class T>
struct Wide {
  using Level = std::conditional_t<sizeof(T) == 1, std::int16_t, std::uint32_t>;
  using Sum = std::conditional_t<sizeof(T) == 1, std::int32_t, std::uint64_t>;
  using Levels = std::array<std::array<Level, chunk>, steps>;
};

struct ExposedLimits {
  int maxSum;
  int white;
};

/// The levels of the well exposed pixels, 0 for the others.
template <class T>
VORN_TARGET_CLONES void exposedLevels(std::array<T const*, steps> const& rows, ExposedLimits const& limits,
                                      int n, typename Wide<T>::Levels& levels) {
  using Level = typename Wide<T>::Level;
  int const maxSum = limits.maxSum;
  int const white = limits.white;
  for (int x = 0; x < n; ++x) {
    int const v0 = rows[0][x];
    int const v1 = rows[1][x];
    int const v2 = rows[2][x];
    int const v3 = rows[3][x];
    bool const isExposed =
        (v0 + v1 + v2 + v3 <= maxSum) & (std::max(std::max(v0, v1), std::max(v2, v3)) < white);
    int const all = isExposed ? -1 : 0;
    levels[0][static_cast<std::size_t>(x)] = static_cast<Level>(v0 & all);
    levels[1][static_cast<std::size_t>(x)] = static_cast<Level>(v1 & all);
    levels[2][static_cast<std::size_t>(x)] = static_cast<Level>(v2 & all);
    levels[3][static_cast<std::size_t>(x)] = static_cast<Level>(v3 & all);
  }
}

template <class Sum, class Level>
VORN_TARGET_CLONES Sum product(Level const* a, Level const* b, int n) {
  Sum sum = 0;
  for (int x = 0; x < n; ++x) {
    sum += static_cast<Sum>(a[x]) * b[x];
  }
  return sum;
}

template <class T>
void addRow(std::vector<cv::Mat> const& images, int y, ExposedLimits const& limits, Products& products) {
  typename Wide<T>::Levels levels;
  int const width = images[0].cols;
  auto const at = [&](std::size_t image, int x) { return images[image].ptr<T>(y) + x; };
  for (int x = 0; x < width; x += chunk) {
    int const n = std::min(chunk, width - x);
    exposedLevels<T>({at(0, x), at(1, x), at(2, x), at(3, x)}, limits, n, levels);
    for (std::size_t i = 0; i < steps; ++i) {
      for (std::size_t j = 0; j <= i; ++j) {
        products[i][j] +=
            static_cast<std::int64_t>(product<typename Wide<T>::Sum>(levels[i].data(), levels[j].data(), n));
      }
    }
  }
}

/// Factors nearer to 1 than this move the phase by less than the rounding of its table.
constexpr float negligible = 2e-5F;

template <class T>
VORN_TARGET_CLONES void correctRow(std::array<T const*, 4> const& row, std::array<float, 4> const& factors,
                                   int n, float* __restrict phase) {
  T const* const i0 = row[0];
  T const* const i1 = row[1];
  T const* const i2 = row[2];
  T const* const i3 = row[3];
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
    float const notBelow = turned < 0.0F ? turned + twoPiFloat : turned;
    float const wrapped = notBelow >= twoPiFloat ? notBelow - twoPiFloat : notBelow;
    phase[x] = wrapped;
  }
}

} // namespace

float correctedPhase(int i0, int i1, int i2, int i3, std::array<float, 4> const& factors) {
  float const sine = factors[0] * static_cast<float>(i0) - factors[2] * static_cast<float>(i2);
  float const cosine = factors[1] * static_cast<float>(i1) - factors[3] * static_cast<float>(i3);
  float const angle = std::atan2(sine, cosine);
  return angle < 0.0F ? angle + twoPiFloat : angle;
}

bool isCorrection(std::array<float, 4> const& factors) {
  return std::any_of(factors.begin(), factors.end(),
                     [](float factor) { return std::fabs(factor - 1.0F) >= negligible; });
}

template <class T>
void correctFlicker(std::array<T const*, 4> const& steps, std::array<float, 4> const& factors, int n,
                    float* phase) {
  correctRow(steps, factors, n, phase);
}

template void correctFlicker(std::array<uchar const*, 4> const& steps, std::array<float, 4> const& factors,
                             int n, float* phase);
template void correctFlicker(std::array<ushort const*, 4> const& steps, std::array<float, 4> const& factors,
                             int n, float* phase);

std::array<float, 4> flickerCorrection(std::vector<cv::Mat> const& phaseImages, int maxGrayLevel, int white) {
  Products products{};
  ExposedLimits const limits{static_cast<int>(steps) * maxGrayLevel, white};
  bool const isOfBytes = phaseImages[0].depth() == CV_8U;
  for (int y = 0; y < phaseImages[0].rows; y += rowStep) {
    isOfBytes ? addRow<uchar>(phaseImages, y, limits, products)
              : addRow<ushort>(phaseImages, y, limits, products);
  }
  double const perGrey = white / 255.0;
  cv::Matx44d gram;
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) {
      auto const row = static_cast<std::size_t>(std::max(i, j));
      auto const column = static_cast<std::size_t>(std::min(i, j));
      gram(i, j) = sign[i] * sign[j] * static_cast<double>(products[row][column]);
    }
  }
  // Factors 1 + B d: the columns of B keep the mean.
  cv::Matx<double, 4, 3> const B(1, 0, 0, 0, 1, 0, 0, 0, 1, -1, -1, -1);
  cv::Vec4d const ones(1, 1, 1, 1);
  cv::Matx33d const normal = B.t() * gram * B + prior * perGrey * perGrey * cv::Matx33d::eye();
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
