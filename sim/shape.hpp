// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>
#include <variant>
#include <vector>

namespace vorn::sim {

/// A half line: origin + t * direction for t > 0; the direction need not have unit length.
struct Ray {
  cv::Vec3d origin;
  cv::Vec3d direction;
};

/// Where a ray meets a shape, in the shape's frame.
struct ShapeHit {
  double t = 0;
  /// Unit length; either side.
  cv::Vec3d normal;
  /// Millimetres along the surface, where a texture is looked up.
  cv::Vec2d uv;
};

/// The part |x - centre.x| <= halfSize.x, |y - centre.y| <= halfSize.y of the plane z = 0.
struct Rectangle {
  cv::Vec2d halfSize;
  cv::Vec2d centre = {0, 0};
};

/// A cuboid around the origin.
struct Box {
  cv::Vec3d halfSize;
};

/// A sphere around the origin.
struct Sphere {
  double radius = 0;
};

/// A round bar along y with closed ends, around the origin.
struct Cylinder {
  double radius = 0;
  double halfLength = 0;
};

/// The free-form surface z = h(x, y) over |x - centre.x| <= halfSize.x, |y - centre.y| <= halfSize.y: a sum
/// of bumps, waves and a bend.
struct HeightField {
  /// amplitude * exp(-((x - centre.x)^2 + (y - centre.y)^2) / (2 sigma^2)).
  struct Bump {
    double amplitude = 0;
    cv::Vec2d centre;
    double sigma = 1;
  };
  /// amplitude * sin(2 pi * (x * direction.x + y * direction.y) / period + phase), direction of unit length.
  struct Wave {
    double amplitude = 0;
    cv::Vec2d direction = {1, 0};
    double period = 1;
    double phase = 0;
  };

  cv::Vec2d halfSize;
  std::vector<Bump> bumps;
  std::vector<Wave> waves;
  cv::Vec2d centre = {0, 0};
  /// sag.x * ((x - centre.x) / halfSize.x)^2, and the same along y.
  cv::Vec2d sag = {0, 0};

  double height(double x, double y) const;
  /// (dh/dx, dh/dy).
  cv::Vec2d gradient(double x, double y) const;
  /// A bound on |h|.
  double maxHeight() const;
  /// A bound on the gradient's length.
  double maxSlope() const;
};

using Shape = std::variant<Rectangle, Box, Sphere, Cylinder, HeightField>;

/// Radius of a sphere around the origin that holds the shape.
double boundingRadius(Shape const& shape);

/// Finds the first point of a shape with tMin < t < tMax along a ray given in the shape's frame. Surfaces are
/// seen from both sides. Returns whether there is one; only then is `hit` set.
bool intersect(Shape const& shape, Ray const& ray, double tMin, double tMax, ShapeHit& hit);

} // namespace vorn::sim
