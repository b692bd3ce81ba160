// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

namespace vorn::mv {

using Points = std::vector<cv::Point3f>;
using Indices = std::vector<std::size_t>;

/// Mean and scatter of some points: sum of (p - mean)(p - mean)^T, its eigenvalues descending, its
/// eigenvectors in rows.
struct Scatter {
  cv::Vec3d mean;
  cv::Vec3d values;
  cv::Matx33d directions;
};

Scatter scatterOf(Points const& points, Indices const& used);

/// What float coordinates of this size cannot tell apart.
double roundingOf(Points const& points, Indices const& used);

/// A shape while it is fitted; all in double.
struct PlaneShape {
  static constexpr std::size_t unknowns = 3;
  static constexpr char const* name = "plane";
  static constexpr char const* function = "fitPlane";

  cv::Vec3d point;
  cv::Vec3d normal;

  double residual(cv::Point3f const& p) const { return normal.dot(cv::Vec3d(p.x, p.y, p.z) - point); }
  /// The plane of least squares; nothing when the points lie on one line.
  static std::optional<PlaneShape> start(Points const& points, Indices const& used);
  /// The plane of least squares.
  static PlaneShape refined(PlaneShape const& from, Points const& points, Indices const& used);
  /// Why the points, of this variance across the shape, do not determine one; empty when they do.
  std::string weakness(Points const& points, Indices const& used, double variance) const;
  cv::Mat covariance(Points const& points, Indices const& used, double variance) const;
};

struct SphereShape {
  static constexpr std::size_t unknowns = 4;
  static constexpr char const* name = "sphere";
  static constexpr char const* function = "fitSphere";

  cv::Vec3d centre;
  double radius = 0.0;

  double residual(cv::Point3f const& p) const { return cv::norm(cv::Vec3d(p.x, p.y, p.z) - centre) - radius; }
  /// The sphere of the least algebraic distance |p|^2 - 2 c p - (r^2 - |c|^2); nothing when the points lie in
  /// one plane.
  static std::optional<SphereShape> start(Points const& points, Indices const& used);
  /// The sphere of least squares near a given one.
  static SphereShape refined(SphereShape const& from, Points const& points, Indices const& used);
  std::string weakness(Points const& points, Indices const& used, double variance) const;
  cv::Mat covariance(Points const& points, Indices const& used, double variance) const;
};

} // namespace vorn::mv
