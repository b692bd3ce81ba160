// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cfloat>
#include <cmath>

#include <opencv2/core.hpp>

#include "measure/shape.hpp"

namespace vorn::mv {

Scatter scatterOf(Points const& points, Indices const& used) {
  Scatter scatter;
  for (std::size_t const i : used) {
    scatter.mean += cv::Vec3d(points[i].x, points[i].y, points[i].z);
  }
  scatter.mean *= 1.0 / static_cast<double>(used.size());
  cv::Matx33d sum = cv::Matx33d::zeros();
  for (std::size_t const i : used) {
    cv::Vec3d const d = cv::Vec3d(points[i].x, points[i].y, points[i].z) - scatter.mean;
    sum += d * d.t();
  }
  cv::eigen(sum, scatter.values, scatter.directions);
  return scatter;
}

double roundingOf(Points const& points, Indices const& used) {
  float largest = 0.0F;
  for (std::size_t const i : used) {
    largest = std::max({largest, std::abs(points[i].x), std::abs(points[i].y), std::abs(points[i].z)});
  }
  return static_cast<double>(largest) * static_cast<double>(FLT_EPSILON);
}

namespace {

/// The directions in which the points have any extent beyond the rounding of their coordinates.
int extents(Scatter const& scatter, Points const& points, Indices const& used) {
  double const rounding = roundingOf(points, used);
  double const least = static_cast<double>(used.size()) * rounding * rounding;
  return static_cast<int>(
      std::count_if(scatter.values.val, scatter.values.val + 3, [&](double value) { return value > least; }));
}

PlaneShape planeOf(Scatter const& scatter) {
  cv::Matx33d const& d = scatter.directions;
  PlaneShape plane{scatter.mean, cv::Vec3d(d(2, 0), d(2, 1), d(2, 2))};
  double const height = plane.normal.dot(plane.point);
  auto const largest = std::max_element(plane.normal.val, plane.normal.val + 3,
                                        [](double a, double b) { return std::abs(a) < std::abs(b); });
  if (height > 0.0 || (height == 0.0 && *largest < 0.0)) {
    plane.normal = -plane.normal;
  }
  return plane;
}

} // namespace

std::optional<PlaneShape> PlaneShape::start(Points const& points, Indices const& used) {
  Scatter const scatter = scatterOf(points, used);
  if (extents(scatter, points, used) < 2) {
    return std::nullopt;
  }
  return planeOf(scatter);
}

PlaneShape PlaneShape::refined(PlaneShape const& /*from*/, Points const& points, Indices const& used) {
  return planeOf(scatterOf(points, used));
}

std::string PlaneShape::weakness(Points const& points, Indices const& used, double variance) const {
  Scatter const scatter = scatterOf(points, used);
  constexpr double widestTilt = 1.0 / 3.0; // rad
  int const wide = extents(scatter, points, used);
  if (wide == 0) {
    return "coincide";
  }
  if (wide == 1 || variance > widestTilt * widestTilt * scatter.values[1]) {
    return "lie on one line";
  }
  return {};
}

cv::Mat PlaneShape::covariance(Points const& points, Indices const& used, double variance) const {
  Scatter const scatter = scatterOf(points, used);
  cv::Matx33d const ofPoint = normal * normal.t() * (variance / static_cast<double>(used.size()));
  cv::Matx33d ofNormal = cv::Matx33d::zeros();
  for (int i = 0; i < 2; ++i) {
    cv::Vec3d const along(scatter.directions(i, 0), scatter.directions(i, 1), scatter.directions(i, 2));
    ofNormal += along * along.t() * (variance / scatter.values[i]);
  }
  cv::Mat covariance = cv::Mat::zeros(6, 6, CV_64F);
  cv::Mat(ofPoint).copyTo(covariance(cv::Rect(0, 0, 3, 3)));
  cv::Mat(ofNormal).copyTo(covariance(cv::Rect(3, 3, 3, 3)));
  return covariance;
}

} // namespace vorn::mv
