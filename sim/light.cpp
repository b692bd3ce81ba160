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
  if (std::holds_alternative<DotGrid>(material.texture)) {
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

PixelIntegral::PixelIntegral(int supersample, double blur) : supersample_(supersample) {
  // Four deviations beyond the pixel's edge nothing is left.
  int const beyond = static_cast<int>(std::ceil(4.0 * blur * supersample));
  first_ = -beyond;
  double const width = std::max(blur, 1e-6) * std::sqrt(2.0);
  std::vector<double> weights;
  double sum = 0;
  for (int k = -beyond; k < supersample + beyond; ++k) {
    double const x = (k + 0.5) / supersample - 0.5;
    weights.push_back(std::erf((x + 0.5) / width) - std::erf((x - 0.5) / width));
    sum += weights.back();
  }
  for (double const w : weights) {
    weights_.push_back(static_cast<float>(w / sum));
  }
}

void PixelIntegral::alongRow(float const* light, int width, float* out) const {
  int const last = width * supersample_ - 1;
  int const taps = static_cast<int>(weights_.size());
  float const* weights = weights_.data();
  for (int x = 0; x < width; ++x) {
    int const start = x * supersample_ + first_;
    float sum = 0;
    if (start >= 0 && start + taps - 1 <= last) {
      for (int k = 0; k < taps; ++k) {
        sum += weights[k] * light[start + k];
      }
    } else {
      for (int k = 0; k < taps; ++k) {
        sum += weights[k] * light[std::clamp(start + k, 0, last)];
      }
    }
    out[x] = sum;
  }
}

void PixelIntegral::alongColumns(cv::Mat const& light, int row, float* out) const {
  int const width = light.cols;
  std::fill(out, out + width, 0.0F);
  int const taps = static_cast<int>(weights_.size());
  for (int k = 0; k < taps; ++k) {
    float const* source = light.ptr<float>(std::clamp(row * supersample_ + first_ + k, 0, light.rows - 1));
    float const weight = weights_[static_cast<std::size_t>(k)];
    for (int x = 0; x < width; ++x) {
      out[x] += weight * source[x];
    }
  }
}

} // namespace vorn::sim
