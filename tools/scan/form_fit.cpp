// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/form_fit.hpp"

#include <algorithm>
#include <cmath>

#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>

namespace vorn::tools {

namespace {

constexpr double keptShare = 0.997;

cv::Vec3d mean(std::vector<cv::Vec3d> const& points) {
  cv::Vec3d sum;
  for (cv::Vec3d const& p : points) {
    sum += p;
  }
  return sum * (1.0 / static_cast<double>(points.size()));
}

/// The width of the band that is left without the same share of points at either end.
double bandWidth(std::vector<double> const& deviations) {
  constexpr double tail = (1.0 - keptShare) / 2.0;
  return quantile(deviations, 1.0 - tail) - quantile(deviations, tail);
}

/// |p|^2 = 2 c.p + (r^2 - |c|^2), linear in c and the bracket; centred for conditioning.
SphereFit algebraicSphere(std::vector<cv::Vec3d> const& points) {
  cv::Vec3d const origin = mean(points);
  cv::Matx44d normal = cv::Matx44d::zeros();
  cv::Vec4d right;
  for (cv::Vec3d const& point : points) {
    cv::Vec3d const p = point - origin;
    cv::Vec4d const row(2.0 * p[0], 2.0 * p[1], 2.0 * p[2], 1.0);
    normal += row * row.t();
    right += row * p.dot(p);
  }
  cv::Vec4d solution;
  if (!cv::solve(normal, right, solution, cv::DECOMP_CHOLESKY)) {
    throw Exception("The points determine no sphere", nullptr, 0, "fitSphere");
  }
  cv::Vec3d const centre(solution[0], solution[1], solution[2]);
  return {centre + origin, std::sqrt(solution[3] + centre.dot(centre)), 0.0};
}

/// One step of Gauss-Newton on the distances |p - c| - r; returns its length.
double refine(SphereFit& sphere, std::vector<cv::Vec3d> const& points) {
  cv::Matx44d normal = cv::Matx44d::zeros();
  cv::Vec4d right;
  for (cv::Vec3d const& p : points) {
    cv::Vec3d const out = p - sphere.centre;
    double const distance = cv::norm(out);
    cv::Vec4d const row(-out[0] / distance, -out[1] / distance, -out[2] / distance, -1.0);
    normal += row * row.t();
    right -= row * (distance - sphere.radius);
  }
  cv::Vec4d step;
  if (!cv::solve(normal, right, step, cv::DECOMP_CHOLESKY)) {
    throw Exception("The points determine no sphere", nullptr, 0, "fitSphere");
  }
  sphere.centre += cv::Vec3d(step[0], step[1], step[2]);
  sphere.radius += step[3];
  return cv::norm(step);
}

} // namespace

SphereFit fitSphere(std::vector<cv::Vec3d> const& points) {
  constexpr std::size_t fewest = 4;
  if (points.size() < fewest) {
    throw Exception("A sphere takes 4 points or more", nullptr, 0, "fitSphere");
  }
  SphereFit sphere = algebraicSphere(points);
  constexpr int mostSteps = 20;
  constexpr double converged = 1e-9; // mm
  for (int i = 0; i < mostSteps && refine(sphere, points) > converged; ++i) {
  }
  std::vector<double> deviations;
  deviations.reserve(points.size());
  for (cv::Vec3d const& p : points) {
    deviations.push_back(cv::norm(p - sphere.centre) - sphere.radius);
  }
  sphere.formError = bandWidth(deviations);
  return sphere;
}

PlaneFit fitPlane(std::vector<cv::Vec3d> const& points) {
  constexpr std::size_t fewest = 3;
  if (points.size() < fewest) {
    throw Exception("A plane takes 3 points or more", nullptr, 0, "fitPlane");
  }
  PlaneFit plane;
  plane.point = mean(points);
  cv::Matx33d scatter = cv::Matx33d::zeros();
  for (cv::Vec3d const& p : points) {
    scatter += (p - plane.point) * (p - plane.point).t();
  }
  cv::Vec3d values;
  cv::Matx33d vectors;
  cv::eigen(scatter, values, vectors);
  plane.normal = cv::Vec3d(vectors(2, 0), vectors(2, 1), vectors(2, 2));
  std::vector<double> deviations;
  double squares = 0.0;
  for (cv::Vec3d const& p : points) {
    deviations.push_back(plane.normal.dot(p - plane.point));
    squares += deviations.back() * deviations.back();
  }
  plane.flatness = bandWidth(deviations);
  plane.rms = std::sqrt(squares / static_cast<double>(points.size()));
  return plane;
}

double quantile(std::vector<double> values, double share) {
  if (values.empty()) {
    return 0.0;
  }
  double const place = share * static_cast<double>(values.size() - 1);
  auto const nth = values.begin() + static_cast<std::ptrdiff_t>(std::lround(place));
  std::nth_element(values.begin(), nth, values.end());
  return *nth;
}

} // namespace vorn::tools
