// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/map_comparison.hpp"

#include <cmath>

#include "sl/coding/stripe_code.hpp"

namespace vorn::sim {

MapComparison compareMap(cv::Mat_<float> const& map, Truth const& truth, Signal const& signal,
                         cv::Mat_<std::uint8_t> const& mask, MapAxis axis) {
  double const period = (axis == MapAxis::Column ? mv::sl::columnCode : mv::sl::rowCode).period;
  MapComparison result;
  double squaredError = 0;
  double squaredBound = 0;
  for (int y = 0; y < map.rows; ++y) {
    for (int x = 0; x < map.cols; ++x) {
      bool const isClean = mask(y, x) == static_cast<std::uint8_t>(TruthMask::Clean);
      result.clean += isClean ? 1 : 0;
      if (map(y, x) < 0) {
        continue;
      }
      ++result.returned;
      double const error = map(y, x) - truth.projector(y, x)[static_cast<int>(axis)];
      result.orderErrors += std::abs(error) > period / 2 ? 1 : 0;
      if (isClean) {
        double const bound =
            period / (2 * CV_PI) * signal.noise(y, x) / (signal.amplitude(y, x) * std::sqrt(2.0));
        ++result.cleanReturned;
        squaredError += error * error;
        squaredBound += bound * bound;
      }
    }
  }
  result.rms = std::sqrt(squaredError / result.cleanReturned);
  result.bound = std::sqrt(squaredBound / result.cleanReturned);
  return result;
}

double systematicError(cv::Mat_<float> const& map, Truth const& truth, MapAxis axis) {
  constexpr int parts = 40;
  cv::Mat_<double> sums(2, parts, 0.0);
  for (int y = 0; y < map.rows; ++y) {
    for (int x = 0; x < map.cols; ++x) {
      auto const place = static_cast<double>(truth.projector(y, x)[static_cast<int>(axis)]);
      double const error = static_cast<double>(map(y, x)) - place;
      if (truth.edge(y, x) == 0 && map(y, x) >= 0 && std::fabs(error) < 0.5) {
        auto const part = static_cast<int>((place - std::floor(place)) * parts);
        sums(0, part) += error;
        sums(1, part) += 1.0;
      }
    }
  }
  double squares = 0.0;
  for (int i = 0; i < parts; ++i) {
    squares += std::pow(sums(0, i) / sums(1, i), 2) / parts;
  }
  return std::sqrt(squares);
}

} // namespace vorn::sim
