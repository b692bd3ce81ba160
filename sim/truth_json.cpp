// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/truth_json.hpp"

#include <nlohmann/json.hpp>
#include <string>

#include <vorn/mv/core/matrix_json.hpp>

namespace vorn::sim {
namespace {

using nlohmann::json;

/// The error a true calibration is given, so that it counts as calibrated (an error of 0 would not).
constexpr double nominalError = 0.2;

/// The measures of a shape and the name of its kind.
struct ShapeJson {
  json operator()(Rectangle const& shape) const {
    return {{"type", "rect"}, {"half_size", shape.halfSize}, {"centre", shape.centre}};
  }
  json operator()(Box const& shape) const { return {{"type", "box"}, {"half_size", shape.halfSize}}; }
  json operator()(Sphere const& shape) const { return {{"type", "sphere"}, {"radius", shape.radius}}; }
  json operator()(Cylinder const& shape) const {
    return {{"type", "cylinder"}, {"radius", shape.radius}, {"half_length", shape.halfLength}};
  }
  json operator()(HeightField const& shape) const {
    json bumps = json::array();
    for (auto const& bump : shape.bumps) {
      bumps.push_back({{"amplitude", bump.amplitude}, {"centre", bump.centre}, {"sigma", bump.sigma}});
    }
    json waves = json::array();
    for (auto const& wave : shape.waves) {
      waves.push_back({{"amplitude", wave.amplitude},
                       {"direction", wave.direction},
                       {"period", wave.period},
                       {"phase", wave.phase}});
    }
    return {{"type", "height_field"}, {"half_size", shape.halfSize},
            {"centre", shape.centre}, {"sag", shape.sag},
            {"bumps", bumps},         {"waves", waves}};
  }
};

} // namespace

json modelJson(Device const& device) {
  auto const& d = device.distortion();
  cv::Vec4d const& s = device.prism();
  json model{{"Resolution", device.resolution()}, {"K", device.matrix()}, {"Error", nominalError}};
  if (s == cv::Vec4d()) {
    model["D"] = cv::Matx<double, 5, 1>(d.data());
  } else {
    model["D"] = cv::Matx<double, 12, 1>(d[0], d[1], d[2], d[3], d[4], 0, 0, 0, s[0], s[1], s[2], s[3]);
  }
  return model;
}

json scannerJson(Rig const& rig) {
  return {{"CameraModel", modelJson(rig.camera.device)},
          {"ProjectorModel", modelJson(rig.projector.device)},
          {"Hpc", (rig.camera.cam_from_world * rig.projector.world_from_proj).matrix()},
          {"Hpose", cv::Matx44d::eye()}};
}

json stereoJson(StereoRig const& rig) {
  return {{"CameraModel0", modelJson(rig.camera0.device)},
          {"CameraModel1", modelJson(rig.camera1.device)},
          {"Hpc", (rig.camera0.cam_from_world * rig.camera1.cam_from_world.inverse()).matrix()},
          {"Hpose", cv::Matx44d::eye()}};
}

json laserJson(LaserRig const& rig) {
  json result = {{"CameraModel", modelJson(rig.camera.device)}};
  int index = 0;
  for (Laser const& laser : rig.lasers) {
    Pose const cam_from_laser = rig.camera.cam_from_world * laser.world_from_laser;
    cv::Vec3d const normal = cam_from_laser.rotation * cv::Vec3d(1, 0, 0);
    // Beside "Plane_" and the index there is nothing that counts the planes.
    result["Plane_" + std::to_string(index++)] = {{"p", cam_from_laser.translation}, {"n", normal}};
  }
  return result;
}

json objectsJson(Scene const& scene, Camera const& camera) {
  json result = json::array();
  for (Object const& object : scene.objects()) {
    json entry = std::visit(ShapeJson(), object.shape);
    entry["label"] = object.label;
    entry["name"] = object.name;
    entry["pose"] = (camera.cam_from_world * object.world_from_object).matrix();
    result.push_back(std::move(entry));
  }
  return result;
}

json viewJson(Pose const& cam_from_target, std::vector<DotTruth> const& dots) {
  json points = json::array();
  for (DotTruth const& dot : dots) {
    json point = {{"index", dot.index},
                  {"pattern", dot.pattern},
                  {"xyz", cam_from_target * cv::Vec3d(dot.pattern.x, dot.pattern.y, 0)}};
    if (dot.camera) {
      point["camera"] = *dot.camera;
    }
    if (dot.projector) {
      point["projector"] = *dot.projector;
    }
    points.push_back(std::move(point));
  }
  return {{"pose", cam_from_target.matrix()}, {"points", std::move(points)}};
}

void addSecondCamera(json& view, std::vector<DotTruth> const& dots) {
  for (std::size_t i = 0; i < dots.size(); ++i) {
    if (dots[i].camera) {
      view["points"][i]["camera_1"] = *dots[i].camera;
    }
  }
}

} // namespace vorn::sim
