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

class Plane3f;

/// A line in space: a point on it and a unit direction. Reckoned in float. All zero when new.
class VORN_API Line3f : public virtual IJsonSerializable {
public:
  Line3f() = default;
  Line3f(Line3f const&) = default;
  Line3f& operator=(Line3f const&) = default;
  ~Line3f() override;

  /// The line through two points; `point()` is midway between them. Equal points leave a direction that is
  /// not finite.
  Line3f(cv::Point3f const& p1, cv::Point3f const& p2);

  /// @throws Exception "Direction vector could not be zero!"
  Line3f(cv::Point3f const& point, cv::Vec3f const& direction);

  /// The axis along which the points spread most, through their mean.
  /// @throws Exception "Not enough data!" below 2 points
  explicit Line3f(std::vector<cv::Point3f> const& points);

  /// A robust line by random sampling.
  ///
  /// In each of `maxIterations` + 1 rounds a line through two random points of the working set is tried. When
  /// more than 1 - `ratio` of the set lie closer to it than `threshold`, these inliers become the working set
  /// and this line their principal axis; later rounds draw from the smaller set, and the last accepted round
  /// is the result. The line stays all zero when no round was accepted. The same input always gives the same
  /// line.
  /// @throws Exception "Not enough data!" below 2 points
  Line3f(std::vector<cv::Point3f> const& points, float threshold, float ratio, int maxIterations);

  /// The line in which two planes meet. Its direction is the cross product of their normals, whose length is
  /// the sine of the angle between them; parallel planes give a zero line.
  Line3f(Plane3f const& a, Plane3f const& b);

  /// A point on the line.
  cv::Point3f const& point() const { return point_; }
  /// Along the line, of unit length.
  cv::Vec3f const& direction() const { return direction_; }

  /// The perpendicular distance of a point, never negative.
  double distance(cv::Point3f const& p) const;

  /// The two mutually closest points: the one on this line, then the one on the other. For parallel lines,
  /// the lines' own points.
  std::vector<cv::Point3f> intersect3(Line3f const& other) const;

  /// The point midway between the two mutually closest points.
  cv::Point3f intersect(Line3f const& other) const;

  /// The point shared with a plane; not finite when the line is parallel to it.
  cv::Point3f intersect(Plane3f const& plane) const;

  /// Writes "p", the point, and "a", the direction.
  void write(nlohmann::json& json) const override;
  void read(nlohmann::json const& json) override;
  /// Writes a mapping with "p" and "a".
  void write(cv::FileStorage& storage) const;
  /// @throws Exception, with nothing changed, when "p" or "a" is missing or no list of as many numbers
  void read(cv::FileNode const& node);

private:
  cv::Point3f point_;
  cv::Vec3f direction_;
};

} // namespace vorn::mv

namespace cv {

/// Writes the line under a name, so that `storage << "axis" << line` works.
VORN_API void write(FileStorage& storage, std::string const& name, vorn::mv::Line3f const& line);
/// Reads a line, or takes `fallback` when the node is empty: `storage["axis"] >> line`.
VORN_API void read(FileNode const& node, vorn::mv::Line3f& line, vorn::mv::Line3f const& fallback);

} // namespace cv
