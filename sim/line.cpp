// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/line.hpp"

#include <cmath>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <string>
#include <utility>

#include "sim/plain_object.hpp"

namespace vorn::sim {
namespace {

constexpr double firstHeight = 20;
constexpr double drift = 1.5;
constexpr double scatter = 0.03;
constexpr int fewestWithFaults = 10;

/// A box that stands on the plate: its centre in the plate's plane, half its size there, its height.
Object onPlate(std::string name, int label, Pose const& world_from_plate, cv::Vec2d const& centre,
               cv::Vec2d const& halfSize, double height) {
  // The camera looks along z: what stands on the plate is nearer.
  Pose const plate_from_box{cv::Matx33d::eye(), {centre[0], centre[1], -0.5 * height}};
  return plainObject(std::move(name), label, Box{{halfSize[0], halfSize[1], 0.5 * height}},
                     world_from_plate * plate_from_box, 0.74);
}

char const* name(LineFault fault) {
  switch (fault) {
  case LineFault::BossMissing:
    return "boss missing";
  case LineFault::Stained:
    return "stained";
  default:
    return "";
  }
}

} // namespace

std::vector<LinePart> lineParts(int count) {
  std::vector<LinePart> parts(count);
  cv::RNG random(20);
  for (int i = 0; i < count; ++i) {
    double const share = count > 1 ? static_cast<double>(i) / (count - 1) : 0;
    parts[i].bossHeight = firstHeight + drift * share + random.gaussian(scatter);
    parts[i].shift = {random.uniform(-1.5, 1.5), random.uniform(-1.5, 1.5)};
    parts[i].turn = random.uniform(-0.8, 0.8);
  }
  if (count >= fewestWithFaults) {
    parts[count / 3].fault = LineFault::BossMissing;
    parts[2 * count / 3].fault = LineFault::Stained;
  }
  return parts;
}

Scene lineScene(LinePart const& part) {
  Pose const world_from_plate =
      Pose::fromDegrees({5 + part.shift[0], 2 + part.shift[1], 575}, {0, 0, part.turn});
  Object plate = plainObject("plate", 1, Rectangle{{75, 55}}, world_from_plate, 0.68);
  std::vector<Object> objects{std::move(plate), onPlate("block", 2, world_from_plate, {38, 12}, {22, 30}, 8)};
  if (part.fault != LineFault::BossMissing) {
    objects.push_back(onPlate("boss", 3, world_from_plate, {-32, -5}, {24, 28}, part.bossHeight));
  }
  if (part.fault == LineFault::Stained) {
    for (Object& object : objects) {
      object.material.albedo = object.label == 3 ? object.material.albedo : 0.05;
    }
  }
  return Scene(std::move(objects));
}

nlohmann::json linePartsJson(std::vector<LinePart> const& parts) {
  nlohmann::json result = nlohmann::json::array();
  for (LinePart const& part : parts) {
    result.push_back({{"height", part.bossHeight}, {"fault", name(part.fault)}});
  }
  return result;
}

} // namespace vorn::sim
