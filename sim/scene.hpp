// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "sim/board.hpp"
#include "sim/pose.hpp"
#include "sim/shape.hpp"

namespace vorn::sim {

/// Squares of two albedos in turn.
struct Checker {
  double side = 10;
  double otherAlbedo = 0.3;
};

/// A smooth ripple of the albedo: relative depth `contrast`, the period in mm.
struct Ripple {
  double period = 10;
  double contrast = 0.3;
};

/// The dots of a calibration target on the ground of the material's albedo; see sim/target.hpp.
struct DotGrid {
  double pitch = 15;
  cv::Range columns;
  cv::Range rows;
  double dotAlbedo = 0.85;
  bool hasMarkers = true;
  /// Of the dots, in pitches; of the markers, in dots.
  double dotDiameter = 0.5;
  double markerRatio = 1.5;
  /// Dots on every second place only, as on the squares of one colour of a chessboard.
  bool isStaggered = false;
  /// Standard deviation of a dot's radius, relative: what ink does on paper.
  double sizeScatter = 0;
};

using Texture = std::variant<std::monostate, Checker, Ripple, DotGrid, std::shared_ptr<Board const>>;

/// How a surface returns light: Lambert's law, and a highlight of the given height around the mirror
/// direction (Blinn's cosine power).
struct Material {
  double albedo = 0.8;
  Texture texture;
  double specular = 0;
  double shininess = 60;
};

/// A shape somewhere in the world. Labels (1 to 255) tell objects apart in truth maps; 0 means
/// no object.
struct Object {
  std::string name;
  int label = 1;
  Shape shape;
  Pose world_from_object;
  Material material;
};

/// What a ray finds.
struct SurfacePoint {
  double t = 0;
  cv::Vec3d x_in_world;
  /// Unit length, towards the ray's origin.
  cv::Vec3d normal_in_world;
  Object const* object = nullptr;
  /// Position on the surface, mm, where the texture is looked up.
  cv::Vec2d uv;
};

/// The objects of a scene. World frame: that of the rig's first camera, millimetres.
class Scene {
public:
  Scene() = default;
  explicit Scene(std::vector<Object> objects);

  std::vector<Object> const& objects() const { return objects_; }

  /// The first surface along a ray. Returns whether there is one.
  bool trace(Ray const& ray_in_world, SurfacePoint& point) const;

  /// Whether anything stands between two points; a surface through an end point itself does not.
  bool isBlocked(cv::Vec3d const& from, cv::Vec3d const& to) const;

  /// The same scene moved as a whole.
  Scene moved(Pose const& new_from_old) const;

private:
  /// What intersecting an object needs besides its shape.
  struct Placement {
    Pose object_from_world;
    cv::Vec3d centre_in_world;
    double squaredRadius = 0;

    bool misses(Ray const& ray_in_world) const;
    Ray toObject(Ray const& ray_in_world) const;
  };

  std::vector<Object> objects_;
  std::vector<Placement> placements_;
};

/// Albedo at a point of a surface, averaged over a patch around it that spans `du` and `dv` (in uv, mm): the
/// edges of dots are drawn exactly rather than by point samples.
double albedo(Material const& material, cv::Vec2d const& uv, cv::Vec2d const& du, cv::Vec2d const& dv);

} // namespace vorn::sim
