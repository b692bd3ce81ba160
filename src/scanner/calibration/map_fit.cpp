// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/calibration/map_fit.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <utility>

#include <opencv2/core.hpp>

#include "core/median.hpp"
#include "geometry/quadratic_fit.hpp"

namespace vorn::mv {
namespace {

/// Deviations below this are as good as none, projector pixels.
constexpr double leastScale = 0.005;

/// No point is more exact, projector pixels: noiseless maps would have it so.
constexpr double leastSigma = 1e-5;

using Coefficients = cv::Vec6d;

double evaluate(Coefficients const& c, CoordinateSample const& s) {
  return c[0] + s.x * (c[1] + s.x * c[3] + s.y * c[4]) + s.y * (c[2] + s.y * c[5]);
}

/// Slopes along both axes between samples far enough apart.
struct Slopes {
  std::vector<double> x;
  std::vector<double> y;

  /// Samples come row by row; a stride pairs each with others in its row or in rows below.
  void add(std::vector<CoordinateSample> const& samples, std::size_t stride) {
    for (std::size_t i = 0; stride > 0 && i + stride < samples.size(); ++i) {
      CoordinateSample const& a = samples[i];
      CoordinateSample const& b = samples[i + stride];
      double const dx = b.x - a.x;
      double const dy = b.y - a.y;
      constexpr double apart = 0.2;
      constexpr double aligned = 0.1;
      if (std::abs(dx) > apart && std::abs(dy) < aligned) {
        x.push_back((b.value - a.value) / dx);
      } else if (std::abs(dy) > apart && std::abs(dx) < aligned) {
        y.push_back((b.value - a.value) / dy);
      }
    }
  }
};

/// A plane through most of the samples: the median slope between samples far enough apart in each direction,
/// and the median of what is left.
Coefficients medianPlane(std::vector<CoordinateSample> const& samples) {
  std::size_t const count = samples.size();
  Slopes slopes;
  for (std::size_t const stride : {count / 2, count / 3, std::size_t(5), std::size_t(9)}) {
    slopes.add(samples, stride);
  }
  // Of places with gaps, as between the white squares of a board, these may pair too few.
  constexpr std::size_t few = 20;
  constexpr std::size_t strides = 50;
  for (std::size_t i = 1; i < strides && std::min(slopes.x.size(), slopes.y.size()) < few; ++i) {
    slopes.add(samples, i * count / strides);
  }
  Coefficients plane = {};
  plane[1] = medianOf(std::move(slopes.x));
  plane[2] = medianOf(std::move(slopes.y));
  std::vector<double> rest;
  rest.reserve(count);
  for (CoordinateSample const& s : samples) {
    rest.push_back(s.value - evaluate(plane, s));
  }
  plane[0] = medianOf(std::move(rest));
  return plane;
}

MapScales scalesOf(std::vector<CoordinateSample> const& samples, Coefficients const& fit) {
  std::array<std::vector<double>, 2> deviations;
  for (CoordinateSample const& s : samples) {
    deviations[s.isInner ? 0 : 1].push_back(std::abs(s.value - evaluate(fit, s)));
  }
  constexpr double gaussianSigma = 1.4826;
  return {std::max(gaussianSigma * medianOf(std::move(deviations[0])), leastScale),
          std::max(gaussianSigma * medianOf(std::move(deviations[1])), leastScale)};
}

constexpr double tukeyWidth = 4.685;

std::optional<Coefficients> weightedFit(std::vector<CoordinateSample> const& samples, Coefficients const& fit,
                                        MapScales const& scales) {
  QuadraticFit<6, 1> next;
  for (CoordinateSample const& s : samples) {
    double const scale = scales.of(s);
    double const u = (s.value - evaluate(fit, s)) / (tukeyWidth * scale);
    if (std::abs(u) >= 1) {
      continue;
    }
    double const weight = (1 - u * u) * (1 - u * u) / (scale * scale);
    next.add(quadraticTerms(s.x, s.y), s.value, weight);
  }
  auto const fitted = next.solve();
  return fitted ? std::optional(Coefficients(fitted->coefficients.val)) : std::nullopt;
}

/// The standard deviation of a fit's value at the point, from how its samples scatter about it: their noise
/// differs, as does how they lie. Nothing where they do not determine it.
std::optional<double> sigmaOf(std::vector<CoordinateSample> const& samples, Coefficients const& fit,
                              MapScales const& scales) {
  using Square = cv::Matx<double, 6, 6>;
  Square normal = Square::zeros();
  Square scatter = Square::zeros();
  int count = 0;
  double weights = 0; // of Tukey's biweight, for deviations in its own unit
  double slopes = 0;  // of its influence function: how much a fit's value follows its samples
  for (CoordinateSample const& s : samples) {
    double const scale = scales.of(s);
    double const deviation = s.value - evaluate(fit, s);
    double const u = deviation / (tukeyWidth * scale);
    if (std::abs(u) < 1) {
      double const near = 1 - u * u;
      double const weight = near * near / (scale * scale);
      weights += near * near;
      slopes += near * (1 - 5 * u * u);
      cv::Vec6d const terms = quadraticTerms(s.x, s.y);
      Square const product = terms * terms.t();
      normal += weight * product;
      scatter += std::pow(weight * deviation, 2) * product;
      ++count;
    }
  }
  bool isSolved = false;
  Square const inverse = normal.inv(cv::DECOMP_CHOLESKY, &isSolved);
  if (!isSolved || count <= Square::rows) {
    return std::nullopt;
  }
  double const unbiased = static_cast<double>(count) / (count - Square::rows);
  constexpr double least = 0.4; // of normal deviations 0.83
  double const follows = std::max(slopes / weights, least);
  return std::max(std::sqrt(unbiased * (inverse * scatter * inverse)(0, 0)) / follows, leastSigma);
}

} // namespace

bool MapFit::agreesWith(CoordinateSample const& s) const {
  return std::abs(s.value - evaluate(coefficients, s)) < tukeyWidth * scales.of(s);
}

std::optional<MapFit> fitMap(std::vector<CoordinateSample> const& samples) {
  constexpr std::size_t leastSamples = 24;
  constexpr int rounds = 6;
  if (samples.size() < leastSamples) {
    return std::nullopt;
  }
  MapFit fit;
  fit.coefficients = medianPlane(samples);
  for (int i = 0; i < rounds; ++i) {
    auto const next = weightedFit(samples, fit.coefficients, scalesOf(samples, fit.coefficients));
    if (!next) {
      return std::nullopt;
    }
    fit.coefficients = *next;
  }
  fit.scales = scalesOf(samples, fit.coefficients);
  auto const sigma = sigmaOf(samples, fit.coefficients, fit.scales);
  if (!sigma) {
    return std::nullopt;
  }
  fit.sigma = *sigma;
  return fit;
}

} // namespace vorn::mv
