// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/part.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <utility>
#include <variant>

#include "sim/folder_writer.hpp"
#include "sim/plain_object.hpp"

namespace vorn::sim {
namespace {

double distanceTo(Box const& box, cv::Vec3d const& x) {
  cv::Vec3d outside;
  double inside = -std::numeric_limits<double>::max();
  for (int i = 0; i < 3; ++i) {
    double const beyond = std::abs(x[i]) - box.halfSize[i];
    outside[i] = std::max(beyond, 0.0);
    inside = std::max(inside, beyond);
  }
  return cv::norm(outside) + std::min(inside, 0.0);
}

double distanceTo(Sphere const& sphere, cv::Vec3d const& x) {
  return cv::norm(x) - sphere.radius;
}

double distanceTo(Cylinder const& cylinder, cv::Vec3d const& x) {
  double const aside = std::hypot(x[0], x[2]) - cylinder.radius;
  double const along = std::abs(x[1]) - cylinder.halfLength;
  return std::hypot(std::max(aside, 0.0), std::max(along, 0.0)) + std::min(std::max(aside, along), 0.0);
}

/// The part has none of these.
double distanceTo(Rectangle const& /*rectangle*/, cv::Vec3d const& /*x*/) {
  return std::numeric_limits<double>::max();
}
double distanceTo(HeightField const& /*field*/, cv::Vec3d const& /*x*/) {
  return std::numeric_limits<double>::max();
}

Object at(std::string name, int label, Shape shape, cv::Vec3d const& centre) {
  constexpr double albedo = 0.72;
  return plainObject(std::move(name), label, std::move(shape), Pose{cv::Matx33d::eye(), centre}, albedo);
}

} // namespace

Scene partScene() {
  // Whole bodies that reach into each other: the surface is that of their union.
  return Scene({
      at("block", 1, Box{{60, 15, 40}}, {0, 0, 0}),
      at("tower", 2, Box{{20, 12, 22}}, {-32, -20, 6}),
      at("boss", 3, Cylinder{11, 14}, {6, -16, -20}),
      at("ball", 4, Sphere{20}, {34, -16, 8}),
      at("bar", 5, Cylinder{6, 10}, {-32, -36, 10}),
  });
}

double distanceToPart(cv::Vec3d const& x_in_part) {
  static Scene const part = partScene();
  double nearest = std::numeric_limits<double>::max();
  for (Object const& object : part.objects()) {
    cv::Vec3d const x_in_object = object.world_from_object.inverse() * x_in_part;
    nearest = std::min(
        nearest, std::visit([&](auto const& shape) { return distanceTo(shape, x_in_object); }, object.shape));
  }
  return nearest;
}

std::vector<Pose> partPoses(int count, PartMotion motion) {
  constexpr double lean = 38;
  constexpr double distance = 565;
  std::vector<Pose> poses;
  for (int i = 0; i < count; ++i) {
    double turn = 15 + 360.0 * i / count;
    double tilt = lean;
    cv::Vec3d shift;
    if (motion == PartMotion::Free) {
      tilt += 16.0 * ((i * 2) % 3 - 1);
      turn += 7.0 * ((i * 3) % 4 - 1.5);
      shift = {6.0 * (i % 3 - 1), 4.0 * (i % 2), 8.0 * ((i * 2) % 3 - 1)};
    }
    Pose const turned = Pose::fromDegrees({0, 0, 0}, {0, turn, 0});
    poses.push_back(Pose::fromDegrees(cv::Vec3d(4, 4, distance) + shift, {tilt, 0, 0}) * turned);
  }
  return poses;
}

std::string partViewName(int index) {
  return numbered("view", index);
}

nlohmann::json partPosesJson(std::vector<Pose> const& cam_from_parts) {
  nlohmann::json views = nlohmann::json::array();
  for (Pose const& cam_from_part : cam_from_parts) {
    cv::Matx44d const matrix = cam_from_part.inverse().matrix();
    nlohmann::json rows = nlohmann::json::array();
    for (int i = 0; i < 4; ++i) {
      rows.push_back({matrix(i, 0), matrix(i, 1), matrix(i, 2), matrix(i, 3)});
    }
    views.push_back({{"name", partViewName(static_cast<int>(views.size()))}, {"commonFromView", rows}});
  }
  return {{"views", views}};
}

} // namespace vorn::sim
