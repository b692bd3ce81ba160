// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/measure/fit.hpp>

#include <cmath>
#include <limits>
#include <numeric>
#include <string>

#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "core/median.hpp"
#include "measure/robust_fit.hpp"

namespace vorn::mv {

namespace {

Sphere3f featureOf(SphereShape const& shape) {
  return {cv::Point3d(shape.centre), static_cast<float>(shape.radius)};
}

Plane3f featureOf(PlaneShape const& shape) {
  return {cv::Point3d(shape.point), cv::Vec3f(shape.normal)};
}

void check(FitSettings const& settings, char const* function) {
  if (!(settings.outlierSigmas > 0.0)) {
    throw error("outlierSigmas must be more than 0, not " + std::to_string(settings.outlierSigmas), function);
  }
  if (!(settings.outlierDistance >= 0.0)) {
    throw error("outlierDistance must be 0 or more, not " + std::to_string(settings.outlierDistance),
                function);
  }
  if (!(settings.formShare > 0.0 && settings.formShare <= 1.0)) {
    throw error("formShare must be more than 0 and at most 1, not " + std::to_string(settings.formShare),
                function);
  }
}

bool isFinite(cv::Point3f const& p) {
  return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

/// The width of the band of values that is left without the same number of them at either end.
double bandWidth(std::vector<double> values, double share) {
  double const tail = (1.0 - share) / 2.0;
  auto const last = static_cast<double>(values.size() - 1);
  auto const ranked = [&](double place) {
    return rankedAmong(values, static_cast<std::size_t>(std::lround(place * last)));
  };
  double const low = ranked(tail);
  return ranked(1.0 - tail) - low;
}

template <class Shape>
auto fitShape(Points const& points, Indices const& used, FitSettings const& settings)
    -> Fit<decltype(featureOf(Shape()))> {
  if (used.size() < Shape::unknowns) {
    throw error("A " + std::string(Shape::name) + " takes " + std::to_string(Shape::unknowns) +
                    " points or more, there are " + std::to_string(used.size()),
                Shape::function);
  }
  Agreement<Shape> agreement = robustFit<Shape>(points, used, settings);
  Fit<decltype(featureOf(Shape()))> fit;
  fit.residuals.assign(points.size(), std::numeric_limits<double>::quiet_NaN());
  for (std::size_t const i : used) {
    fit.residuals[i] = agreement.shape.residual(points[i]);
  }
  std::vector<double> ofInliers;
  ofInliers.reserve(agreement.inliers.size());
  double squares = 0.0;
  for (std::size_t const i : agreement.inliers) {
    ofInliers.push_back(fit.residuals[i]);
    squares += fit.residuals[i] * fit.residuals[i];
  }
  // As many inliers as unknowns are met exactly and tell nothing of their scatter.
  std::size_t const redundancy = ofInliers.size() - Shape::unknowns;
  double const variance = squares / static_cast<double>(redundancy);
  std::string const weakness =
      agreement.shape.weakness(points, agreement.inliers, redundancy > 0 ? variance : 0.0);
  if (!weakness.empty()) {
    throw error(
        "The " + std::to_string(ofInliers.size()) + " points " + weakness +
            (redundancy > 0 ? " to within their scatter of " + std::to_string(std::sqrt(variance)) : "") +
            ": they determine no " + Shape::name,
        Shape::function);
  }
  fit.covariance = agreement.shape.covariance(
      points, agreement.inliers, redundancy > 0 ? variance : std::numeric_limits<double>::quiet_NaN());
  fit.form = bandWidth(std::move(ofInliers), settings.formShare);
  fit.feature = featureOf(agreement.shape);
  fit.inliers = std::move(agreement.inliers);
  return fit;
}

template <class Shape>
auto fitPoints(Points const& points, FitSettings const& settings) {
  check(settings, Shape::function);
  Indices used(points.size());
  std::iota(used.begin(), used.end(), std::size_t{0});
  for (std::size_t const i : used) {
    if (!isFinite(points[i])) {
      throw error("Point " + std::to_string(i) + " is not finite: (" + std::to_string(points[i].x) + ", " +
                      std::to_string(points[i].y) + ", " + std::to_string(points[i].z) + ")",
                  Shape::function);
    }
  }
  return fitShape<Shape>(points, used, settings);
}

template <class Shape>
auto fitCloud(PointCloud const& cloud, FitSettings const& settings) {
  check(settings, Shape::function);
  cloud.checkSizes();
  Points points;
  Indices used;
  points.reserve(cloud.pointCount());
  for (int y = 0; y < cloud.points().rows; ++y) {
    for (int x = 0; x < cloud.points().cols; ++x) {
      points.emplace_back(cloud.points()(y, x));
      if (cloud.state()(y, x) == 0 && isFinite(points.back())) {
        used.push_back(points.size() - 1);
      }
    }
  }
  return fitShape<Shape>(points, used, settings);
}

} // namespace

Fit<Sphere3f> fitSphere(std::vector<cv::Point3f> const& points, FitSettings const& settings) {
  return fitPoints<SphereShape>(points, settings);
}

Fit<Sphere3f> fitSphere(PointCloud const& cloud, FitSettings const& settings) {
  return fitCloud<SphereShape>(cloud, settings);
}

Fit<Plane3f> fitPlane(std::vector<cv::Point3f> const& points, FitSettings const& settings) {
  return fitPoints<PlaneShape>(points, settings);
}

Fit<Plane3f> fitPlane(PointCloud const& cloud, FitSettings const& settings) {
  return fitCloud<PlaneShape>(cloud, settings);
}

} // namespace vorn::mv
