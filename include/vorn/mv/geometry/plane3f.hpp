// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/matx.hpp>
#include <opencv2/core/persistence.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/core/interfaces.hpp>

namespace vorn::mv {

class Line3f;

/// A plane in space: a point on it and a unit normal. Reckoned in float. All zero when new.
class VORN_API Plane3f : public virtual IJsonSerializable {
public:
  Plane3f() = default;
  Plane3f(Plane3f const&) = default;
  Plane3f& operator=(Plane3f const&) = default;
  ~Plane3f() override;

  /// The plane through three points; `point()` is their mean, the normal (p2 - p1) x (p3 - p1) made unit.
  /// @throws Exception "Normal vector could not be zero!" when they lie on one line
  Plane3f(cv::Point3f const& p1, cv::Point3f const& p2, cv::Point3f const& p3);

  /// @throws Exception "Normal vector could not be zero!"
  Plane3f(cv::Point3f const& point, cv::Vec3f const& normal);

  /// Fits a plane n p = 1 by least squares and drops the points that lie farther off than the mean distance,
  /// again and again until the mean distance is below a bound.
  ///
  /// The plane must not pass through the origin, where its form has no solution.
  /// @param maxMeanDistance the bound, in the unit of the points; strict, so 0 is never reached
  /// @throws Exception "Not enough point to estimate 3d plane!" below 3 points;
  ///         "Not enough point to estimate 3d plane due to outliner removal" when fewer than 3 points are
  ///         left, or none can be dropped while the bound is not met;
  ///         "Normal vector could not be zero!" for points that determine no plane
  static Plane3f estimate(std::vector<cv::Point3f> const& points, double maxMeanDistance);

  /// A point on the plane.
  cv::Point3f const& point() const { return point_; }
  /// At right angles to the plane, of unit length.
  cv::Vec3f const& normal() const { return normal_; }

  /// The distance of a point, never negative.
  double distance(cv::Point3f const& p) const;

  /// The point shared with a line; not finite when the line is parallel to the plane.
  cv::Point3f intersect(Line3f const& line) const;

  /// The line shared with another plane; see Line3f.
  Line3f intersect(Plane3f const& other) const;

  /// Writes "p", the point, and "n", the normal.
  void write(nlohmann::json& json) const override;
  void read(nlohmann::json const& json) override;
  /// Writes a mapping with "p" and "n".
  void write(cv::FileStorage& storage) const;
  /// @throws Exception, with nothing changed, when "p" or "n" is missing or no list of as many numbers
  void read(cv::FileNode const& node);

private:
  cv::Point3f point_;
  cv::Vec3f normal_;
};

} // namespace vorn::mv

namespace cv {

/// Writes the plane under a name, so that `storage << "laser" << plane` works.
VORN_API void write(FileStorage& storage, std::string const& name, vorn::mv::Plane3f const& plane);
/// Reads a plane, or takes `fallback` when the node is empty: `storage["laser"] >> plane`.
VORN_API void read(FileNode const& node, vorn::mv::Plane3f& plane, vorn::mv::Plane3f const& fallback);

} // namespace cv
