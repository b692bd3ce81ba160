// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <limits>

#include <opencv2/core.hpp>

#include "measure/shape.hpp"

namespace vorn::mv {

namespace {

cv::Vec3d asVector(cv::Point3f const& p) {
  return {p.x, p.y, p.z};
}

/// The derivatives of the distances |p - c| less their mean, and those distances: with the radius always the
/// mean distance, only the centre is left to search, and a flat cap, where centre and radius go together,
/// stays well posed.
struct Linearised {
  cv::Matx33d normal = cv::Matx33d::zeros(); ///< sum of (u - mean u)(u - mean u)^T, u the unit vector from c
  cv::Vec3d right;                           ///< sum of (u - mean u)(d - mean d)
  cv::Vec3d meanDirection;
  double meanDistance = 0.0;
  double squares = 0.0; ///< sum of (d - mean d)^2
};

Linearised linearised(cv::Vec3d const& centre, Points const& points, Indices const& used) {
  Linearised sums;
  for (std::size_t const i : used) {
    cv::Vec3d const out = asVector(points[i]) - centre;
    double const distance = cv::norm(out);
    sums.meanDistance += distance;
    sums.meanDirection += distance > 0.0 ? out * (1.0 / distance) : cv::Vec3d();
  }
  double const share = 1.0 / static_cast<double>(used.size());
  sums.meanDistance *= share;
  sums.meanDirection *= share;
  for (std::size_t const i : used) {
    cv::Vec3d const out = asVector(points[i]) - centre;
    double const distance = cv::norm(out);
    cv::Vec3d const u = (distance > 0.0 ? out * (1.0 / distance) : cv::Vec3d()) - sums.meanDirection;
    double const d = distance - sums.meanDistance;
    for (int row = 0; row < 3; ++row) {
      for (int column = row; column < 3; ++column) {
        sums.normal(row, column) += u[row] * u[column];
      }
      sums.right[row] += u[row] * d;
    }
    sums.squares += d * d;
  }
  sums.normal(1, 0) = sums.normal(0, 1);
  sums.normal(2, 0) = sums.normal(0, 2);
  sums.normal(2, 1) = sums.normal(1, 2);
  return sums;
}

} // namespace

std::optional<SphereShape> SphereShape::start(Points const& points, Indices const& used) {
  Scatter const scatter = scatterOf(points, used);
  double const rounding = roundingOf(points, used);
  auto const count = static_cast<double>(used.size());
  if (scatter.values[2] <= count * rounding * rounding) {
    return std::nullopt;
  }
  // About the mean, and in units of the extent, so that the numbers of the system are all about 1.
  double const extent = std::sqrt(scatter.values[0] / count);
  cv::Matx44d normal = cv::Matx44d::zeros();
  cv::Vec4d right;
  for (std::size_t const i : used) {
    cv::Vec3d const p = (asVector(points[i]) - scatter.mean) * (1.0 / extent);
    cv::Vec4d const row(2.0 * p[0], 2.0 * p[1], 2.0 * p[2], 1.0);
    normal += row * row.t();
    right += row * p.dot(p);
  }
  cv::Vec4d const s = normal.solve(right, cv::DECOMP_SVD);
  cv::Vec3d const centre(s[0], s[1], s[2]);
  double const radius = std::sqrt(s[3] + centre.dot(centre));
  if (!std::isfinite(radius) || radius == 0.0) {
    return std::nullopt;
  }
  return SphereShape{centre * extent + scatter.mean, radius * extent};
}

SphereShape SphereShape::refined(SphereShape const& from, Points const& points, Indices const& used) {
  constexpr int mostSteps = 100;
  constexpr double firstDamping = 1e-6;
  constexpr double mostDamping = 1e12;
  constexpr double converged = 1e-12; // of the radius
  cv::Vec3d centre = from.centre;
  Linearised at = linearised(centre, points, used);
  double damping = firstDamping;
  for (int i = 0; i < mostSteps && damping < mostDamping; ++i) {
    cv::Matx33d damped = at.normal;
    for (int k = 0; k < 3; ++k) {
      damped(k, k) *= 1.0 + damping;
    }
    cv::Vec3d const step = damped.solve(at.right, cv::DECOMP_LU);
    Linearised const next = linearised(centre + step, points, used);
    if (!(next.squares <= at.squares)) {
      damping *= 10.0;
      continue;
    }
    centre += step;
    at = next;
    damping *= 0.1;
    if (cv::norm(step) <= converged * at.meanDistance) {
      break;
    }
  }
  return {centre, at.meanDistance};
}

std::string SphereShape::weakness(Points const& points, Indices const& used, double variance) const {
  Scatter const scatter = scatterOf(points, used);
  double const rounding = roundingOf(points, used);
  double const least = static_cast<double>(used.size()) * rounding * rounding;
  if (scatter.values[0] <= least) {
    return "coincide";
  }
  if (scatter.values[1] <= least) {
    return "lie on one line";
  }
  if (scatter.values[2] <= least) {
    return "lie in one plane";
  }
  constexpr double leastCertain = 1.0 / 3.0;
  // Without redundancy there is no scatter to judge by, but rounding there always is.
  cv::Mat const c = covariance(points, used, std::max(variance, rounding * rounding));
  cv::Vec3d ofCentre;
  cv::eigen(cv::Matx33d(c(cv::Rect(0, 0, 3, 3))), ofCentre);
  double const bound = leastCertain * leastCertain * radius * radius;
  bool const isCertain = c.at<double>(3, 3) < bound && ofCentre[0] < bound;
  return isCertain ? "" : "lie in one plane";
}

cv::Mat SphereShape::covariance(Points const& points, Indices const& used, double variance) const {
  Linearised const at = linearised(centre, points, used);
  bool isRegular = false;
  cv::Matx33d ofCentre = at.normal.inv(cv::DECOMP_LU, &isRegular) * variance;
  if (!isRegular) {
    ofCentre = cv::Matx33d::all(std::numeric_limits<double>::infinity());
  }
  cv::Vec3d const ofBoth = -(ofCentre * at.meanDirection);
  cv::Mat covariance(4, 4, CV_64F);
  cv::Mat(ofCentre).copyTo(covariance(cv::Rect(0, 0, 3, 3)));
  cv::Mat(ofBoth).copyTo(covariance(cv::Rect(3, 0, 1, 3)));
  cv::Mat(ofBoth.t()).copyTo(covariance(cv::Rect(0, 3, 3, 1)));
  covariance.at<double>(3, 3) = variance / static_cast<double>(used.size()) - at.meanDirection.dot(ofBoth);
  return covariance;
}

} // namespace vorn::mv
