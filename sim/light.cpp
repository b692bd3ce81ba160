// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/light.hpp"

#include <algorithm>
#include <cmath>

namespace vorn::sim {
namespace {

/// How far `step` (a change of the ray's direction) moves the point seen, in the surface's own coordinates.
cv::Vec2d footprint(SurfacePoint const& point, cv::Vec3d const& direction, cv::Vec3d const& step) {
  cv::Vec3d const& n = point.normal_in_world;
  cv::Vec3d const moved = point.t * (step - direction * (n.dot(step) / n.dot(direction)));
  cv::Vec3d const local = point.object->world_from_object.rotation.t() * moved;
  return {local[0], local[1]};
}

double length(cv::Vec3d const& v) {
  return std::sqrt(v.dot(v));
}

/// The share of light returned towards the camera for light from a unit direction; 0 from behind.
double reflectance(CameraSample const& sample, cv::Vec3d const& toLight, cv::Vec3d const& camera_in_world) {
  cv::Vec3d const& normal = sample.point.normal_in_world;
  double const lambert = normal.dot(toLight);
  if (lambert <= 0.0) {
    return 0.0;
  }
  Material const& material = sample.point.object->material;
  double highlight = 0.0;
  if (material.specular > 0.0) {
    cv::Vec3d const toCamera = cv::normalize(camera_in_world - sample.point.x_in_world);
    double const mirror = normal.dot(cv::normalize(toLight + toCamera));
    highlight = material.specular * std::pow(std::max(mirror, 0.0), material.shininess);
  }
  return sample.albedo * lambert + highlight;
}

} // namespace

bool look(Camera const& camera, Pose const& world_from_cam, Scene const& scene, cv::Point2d const& pixel,
          double width, CameraSample& sample) {
  cv::Vec3d const direction = world_from_cam.rotation * camera.device.ray(pixel);
  if (!scene.trace({world_from_cam.translation, direction}, sample.point)) {
    return false;
  }
  Material const& material = sample.point.object->material;
  cv::Vec2d du;
  cv::Vec2d dv;
  if (std::holds_alternative<DotGrid>(material.texture) ||
      std::holds_alternative<std::shared_ptr<Board const>>(material.texture)) {
    cv::Point2d const focal = camera.device.focal();
    du = footprint(sample.point, direction, world_from_cam.rotation * cv::Vec3d(width / focal.x, 0, 0));
    dv = footprint(sample.point, direction, world_from_cam.rotation * cv::Vec3d(0, width / focal.y, 0));
  }
  sample.albedo = albedo(material, sample.point.uv, du, dv);
  return true;
}

ProjectorLight lightFrom(Projector const& projector, Pose const& proj_from_world, Scene const& scene,
                         CameraSample const& sample, cv::Vec3d const& camera_in_world, double margin) {
  ProjectorLight light;
  cv::Vec3d const x_in_proj = proj_from_world * sample.point.x_in_world;
  auto const pixel = projector.device.project(x_in_proj);
  cv::Size const size = projector.device.resolution();
  if (!pixel || pixel->x < -margin || pixel->y < -margin || pixel->x > size.width - 1 + margin ||
      pixel->y > size.height - 1 + margin) {
    return light;
  }
  cv::Vec3d const& projector_in_world = projector.world_from_proj.translation;
  double const distance = length(x_in_proj);
  double const share =
      reflectance(sample, (projector_in_world - sample.point.x_in_world) / distance, camera_in_world);
  if (share <= 0.0 || scene.isBlocked(sample.point.x_in_world, projector_in_world)) {
    return light;
  }
  double const nearness = projector.referenceDistance / distance;
  light.pixel = *pixel;
  light.sigma =
      projector.blur + projector.blurSlope * std::abs(x_in_proj[2] - projector.focus) / projector.focus;
  light.gain = share * nearness * nearness;
  return light;
}

double lightFrom(Laser const& laser, Pose const& laser_from_world, Scene const& scene,
                 CameraSample const& sample) {
  cv::Vec3d const x_in_laser = laser_from_world * sample.point.x_in_world;
  double const across = x_in_laser[0] / laser.sigma;
  double const fan = std::abs(std::atan2(x_in_laser[1], x_in_laser[2]));
  // Six deviations out the light is 1e-8 of the line's.
  constexpr double dark = 6.0;
  if (std::abs(across) > dark || fan > laser.fanHalfAngleDegrees * CV_PI / 180.0) {
    return 0.0;
  }
  double const distance = length(x_in_laser);
  cv::Vec3d const& laser_in_world = laser.world_from_laser.translation;
  double const lambert =
      sample.point.normal_in_world.dot(laser_in_world - sample.point.x_in_world) / distance;
  if (lambert <= 0.0 || scene.isBlocked(sample.point.x_in_world, laser_in_world)) {
    return 0.0;
  }
  return laser.strength * sample.albedo * lambert * laser.referenceDistance / distance *
         std::exp(-0.5 * across * across);
}

} // namespace vorn::sim
