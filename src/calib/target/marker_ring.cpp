// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/marker_ring.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "calib/target/dot_centre.hpp"

namespace vorn::mv {

std::optional<double> markerRing(cv::Mat const& image, cv::Point2d const& centre, cv::Matx22d const& steps,
                                 double radius) {
  constexpr int directions = 16;
  constexpr double ringInRadii = 1.25;  // half way to a marker's rim
  constexpr double betweenDots = 0.5;   // the middle of a grid cell, farthest from all dots
  constexpr double leastContrast = 3.0; // grey levels
  auto const greyAt = [&](double x, double y) {
    cv::Vec2d const offset = steps * cv::Vec2d(x, y);
    return greyAround(image, centre + cv::Point2d(offset[0], offset[1]));
  };
  double const ringRadius = ringInRadii * radius;
  double const ground = 0.25 * (greyAt(betweenDots, betweenDots) + greyAt(-betweenDots, betweenDots) +
                                greyAt(betweenDots, -betweenDots) + greyAt(-betweenDots, -betweenDots));
  double const contrast = greyAt(0, 0) - ground;
  if (contrast < leastContrast) {
    return std::nullopt;
  }
  double sum = 0;
  for (int i = 0; i < directions; ++i) {
    double const angle = 2.0 * CV_PI * i / directions;
    sum += greyAt(ringRadius * std::cos(angle), ringRadius * std::sin(angle)) - ground;
  }
  return sum / (directions * contrast);
}

} // namespace vorn::mv
