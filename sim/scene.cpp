// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/scene.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core/cvdef.h>

#include "sim/coverage.hpp"
#include "sim/target.hpp"

namespace vorn::sim {
namespace {

double dotShare(DotGrid const& grid, cv::Vec2d const& uv, cv::Vec2d const& du, cv::Vec2d const& dv) {
  int const column = std::clamp(cvRound(uv[0] / grid.pitch), grid.columns.start, grid.columns.end - 1);
  int const row = std::clamp(cvRound(uv[1] / grid.pitch), grid.rows.start, grid.rows.end - 1);
  if (!hasDot(grid, column, row)) {
    return 0;
  }
  cv::Vec2d const fromCentre = uv - cv::Vec2d(column, row) * grid.pitch;
  double const distance = std::sqrt(fromCentre.dot(fromCentre));
  double const edge = distance - dotRadius(grid, column, row);
  cv::Vec2d const outwards = distance > 0.0 ? fromCentre / distance : cv::Vec2d(1, 0);
  return coverage(edge, outwards.dot(du), outwards.dot(dv));
}

struct AlbedoOf {
  Material const& material;
  cv::Vec2d const& uv;
  cv::Vec2d const& du;
  cv::Vec2d const& dv;

  double operator()(std::monostate /*plain*/) const { return material.albedo; }

  double operator()(Checker const& checker) const {
    auto const parity = std::lround(std::floor(uv[0] / checker.side) + std::floor(uv[1] / checker.side)) % 2;
    return parity == 0 ? material.albedo : checker.otherAlbedo;
  }

  double operator()(Ripple const& ripple) const {
    double const k = 2.0 * CV_PI / ripple.period;
    return material.albedo * (1.0 + ripple.contrast * std::sin(k * uv[0]) * std::sin(k * uv[1]));
  }

  double operator()(DotGrid const& grid) const {
    double const share = dotShare(grid, uv, du, dv);
    return share * grid.dotAlbedo + (1.0 - share) * material.albedo;
  }

  double operator()(std::shared_ptr<Board const> const& board) const {
    double const share = board->darkShare(uv, du, dv);
    return share * board->darkAlbedo() + (1.0 - share) * material.albedo;
  }
};

} // namespace

bool Scene::Placement::misses(Ray const& ray) const {
  cv::Vec3d const toCentre = centre_in_world - ray.origin;
  double const along = toCentre.dot(ray.direction);
  double const squaredLength = ray.direction.dot(ray.direction);
  return (toCentre.dot(toCentre) - squaredRadius) * squaredLength > along * along;
}

Ray Scene::Placement::toObject(Ray const& ray) const {
  return {object_from_world * ray.origin, object_from_world.rotation * ray.direction};
}

Scene::Scene(std::vector<Object> objects) : objects_(std::move(objects)) {
  placements_.reserve(objects_.size());
  for (Object const& object : objects_) {
    double const radius = boundingRadius(object.shape);
    placements_.push_back(
        {object.world_from_object.inverse(), object.world_from_object.translation, radius * radius});
  }
}

bool Scene::trace(Ray const& ray, SurfacePoint& point) const {
  double nearest = std::numeric_limits<double>::infinity();
  ShapeHit hit;
  for (std::size_t i = 0; i < objects_.size(); ++i) {
    if (!placements_[i].misses(ray) &&
        intersect(objects_[i].shape, placements_[i].toObject(ray), 0.0, nearest, hit)) {
      nearest = hit.t;
      point.object = &objects_[i];
      point.normal_in_world = hit.normal;
      point.uv = hit.uv;
    }
  }
  if (nearest == std::numeric_limits<double>::infinity()) {
    return false;
  }
  point.t = nearest;
  point.x_in_world = ray.origin + nearest * ray.direction;
  point.normal_in_world = point.object->world_from_object.rotation * point.normal_in_world;
  if (point.normal_in_world.dot(ray.direction) > 0.0) {
    point.normal_in_world = -point.normal_in_world;
  }
  return true;
}

bool Scene::isBlocked(cv::Vec3d const& from, cv::Vec3d const& to) const {
  Ray const ray = {from, to - from};
  // A micrometre: more than the rounding of a surface point, less than any real gap.
  double const skip = 1e-3 / std::sqrt(ray.direction.dot(ray.direction));
  ShapeHit hit;
  for (std::size_t i = 0; i < objects_.size(); ++i) {
    if (!placements_[i].misses(ray) &&
        intersect(objects_[i].shape, placements_[i].toObject(ray), skip, 1.0 - skip, hit)) {
      return true;
    }
  }
  return false;
}

Scene Scene::moved(Pose const& new_from_old) const {
  std::vector<Object> objects = objects_;
  for (Object& object : objects) {
    object.world_from_object = new_from_old * object.world_from_object;
  }
  return Scene(std::move(objects));
}

double albedo(Material const& material, cv::Vec2d const& uv, cv::Vec2d const& du, cv::Vec2d const& dv) {
  return std::visit(AlbedoOf{material, uv, du, dv}, material.texture);
}

} // namespace vorn::sim
