// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

#include <opencv2/core.hpp>

namespace vorn::mv {

/// Points count as lying on one line when they spread less than this across it, as a share of their length.
constexpr double thinnestSpread = 0.01;

/// The spread of points of the plane or of space across their longest direction, as a share of that along it:
/// 0 for points on a line and for points that are all the same.
template <class Point>
double relativeSpread(std::vector<Point> const& points) {
  constexpr int dimensions = cv::DataType<Point>::channels;
  using Vector = cv::Vec<double, dimensions>;
  auto const asVector = [](Point const& p) { return Vector(cv::Vec<float, dimensions>(p)); };
  Vector mean;
  for (Point const& p : points) {
    mean += asVector(p) * (1.0 / static_cast<double>(points.size()));
  }
  cv::Matx<double, dimensions, dimensions> covariance;
  for (Point const& p : points) {
    Vector const offset = asVector(p) - mean;
    covariance += offset * offset.t();
  }
  Vector variances; // descending
  cv::eigen(covariance, variances);
  return variances[0] > 0 ? std::sqrt(std::max(variances[1], 0.0) / variances[0]) : 0;
}

} // namespace vorn::mv
