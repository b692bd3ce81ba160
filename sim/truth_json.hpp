// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <vector>

#include "sim/rig.hpp"
#include "sim/scene.hpp"
#include "sim/target.hpp"

/// JSON of what a rig and a scene truly are.
namespace vorn::sim {

/// A device as the library's camera model.
nlohmann::json modelJson(Device const& device);

/// The documents of the library's calibrated objects.
nlohmann::json scannerJson(Rig const& rig);
nlohmann::json stereoJson(StereoRig const& rig);
nlohmann::json laserJson(LaserRig const& rig);

/// The objects of a scene: label, name, pose in the camera's frame, type, measures.
nlohmann::json objectsJson(Scene const& scene, Camera const& camera);

/// One target view: its pose and its dots with the "camera" and "projector" points that exist.
nlohmann::json viewJson(Pose const& cam_from_target, std::vector<DotTruth> const& dots);

/// Adds the second camera's points of the same dots to a view as "camera_1".
void addSecondCamera(nlohmann::json& view, std::vector<DotTruth> const& dots);

} // namespace vorn::sim
