// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <opencv2/core/matx.hpp>
#include <string>
#include <vector>

#include "sim/scene.hpp"

/// A part that is scanned from several sides.
namespace vorn::sim {

/// How a part gets from view to view.
enum class PartMotion {
  Turntable, ///< turned in even steps about one axis, the y axis of its frame, which leans towards the camera
  Free       ///< the same turns, leaning more and less in between and shifted, as by hand
};

/// A stepped block of 120 x 80 mm with a tower, a boss and half a ball on it, in the part's frame: y points
/// down, the block's foot is at y = 15 and its top at -15.
Scene partScene();

/// The signed distance of a point of the part's frame from the part's surface, mm: negative inside. Exact
/// outside, and where the point is nearer to the surface than to its inner edges.
double distanceToPart(cv::Vec3d const& x_in_part);

/// Where the part is in each of `count` views, before the camera of the demonstration rig: cam_from_part.
std::vector<Pose> partPoses(int count, PartMotion motion);

/// view_00 for the first of them.
std::string partViewName(int index);

/// The poses of views as `vorn-mv fuse` reads them: "views", each with "name" and "commonFromView", four rows
/// of a matrix that takes points of the camera's frame to the part's.
nlohmann::json partPosesJson(std::vector<Pose> const& cam_from_parts);

} // namespace vorn::sim
