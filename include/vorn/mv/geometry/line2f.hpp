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

/// A line in the image plane: a point on it and a unit direction. Reckoned in float. All zero when new.
class VORN_API Line2f : public virtual IJsonSerializable {
public:
  Line2f() = default;
  Line2f(Line2f const&) = default;
  Line2f& operator=(Line2f const&) = default;
  ~Line2f() override;

  /// The line through two points; `point()` is midway between them.
  /// @throws Exception "Direction vector could not be zero!" when they coincide
  Line2f(cv::Point2f const& p1, cv::Point2f const& p2);

  /// The least-squares line a x + b y = 1; `point()` is the mean of the points.
  ///
  /// A line through the origin has no such form: its normal equations are singular and the direction is
  /// whatever their inverse gives, mostly not finite.
  /// @throws Exception "Not enough point to estimate 2D line" below 2 points
  explicit Line2f(std::vector<cv::Point2f> const& points);

  /// A robust line by random sampling.
  ///
  /// In each of `maxIterations` + 1 rounds a line through two random points of the working set is tried. When
  /// more than 1 - `ratio` of the set lie closer to it than `threshold`, these inliers become the working set
  /// and this line their least-squares fit; later rounds draw from the smaller set, and the last accepted
  /// round is the result. The line stays all zero when no round was accepted.
  ///
  /// Draws with std::rand: the result depends on the process's random state.
  /// @throws Exception "Not enough data point!" below 2 points; "Direction vector could not be zero!" when
  ///         two equal points were drawn
  Line2f(std::vector<cv::Point2f> const& points, float threshold, float ratio, int maxIterations);

  /// A point on the line.
  cv::Point2f const& point() const { return point_; }
  /// Along the line, of unit length.
  cv::Vec2f const& direction() const { return direction_; }

  /// The perpendicular distance of a point, never negative.
  double distance(cv::Point2f const& p) const;

  /// The point that both lines share; a far one for parallel lines.
  cv::Point2f intersect(Line2f const& other) const;

  /// Draws the line from edge to edge of the image: left to right up to 45 degrees of slope, else top to
  /// bottom. A line that is not finite is not drawn.
  /// @param thickness in pixels, cut to a whole number of at least 1
  void draw(cv::Mat& image, cv::Scalar const& color, float thickness) const;

  /// Writes "p", the point, and "a", the direction.
  void write(nlohmann::json& json) const override;
  void read(nlohmann::json const& json) override;
  /// Writes a mapping with "p" and "a".
  void write(cv::FileStorage& storage) const;
  /// @throws Exception, with nothing changed, when "p" or "a" is missing or no list of as many numbers
  void read(cv::FileNode const& node);

private:
  cv::Point2f point_;
  cv::Vec2f direction_;
};

} // namespace vorn::mv

namespace cv {

/// Writes the line under a name, so that `storage << "axis" << line` works.
VORN_API void write(FileStorage& storage, std::string const& name, vorn::mv::Line2f const& line);
/// Reads a line, or takes `fallback` when the node is empty: `storage["axis"] >> line`.
VORN_API void read(FileNode const& node, vorn::mv::Line2f& line, vorn::mv::Line2f const& fallback);

} // namespace cv
