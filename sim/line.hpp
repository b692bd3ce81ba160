// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <vector>

#include "sim/scene.hpp"

/// A production line: the same part again and again, one of whose dimensions drifts.
namespace vorn::sim {

/// What may be wrong with a part.
enum class LineFault { None, BossMissing, Stained };

/// A plate of 150 x 110 mm with a boss, whose height is the dimension that drifts, and a lower block beside
/// it.
struct LinePart {
  /// Of the boss above the plate, mm.
  double bossHeight = 20;
  LineFault fault = LineFault::None;
  /// How the part lies in its fixture: a shift in the plate's plane, mm, and a turn in it, degrees.
  cv::Vec2d shift = {0, 0};
  double turn = 0;
};

/// The parts of a series in their order, the same ones at every call: the boss grows evenly by 1.5 mm from
/// the first to the last, with a scatter of 0.03 mm. A series of at least ten has two faulty parts: about a
/// third of the way the boss is missing, about two thirds of the way most of the part is covered by a dark
/// stain.
std::vector<LinePart> lineParts(int count);

/// The part before the camera of the demonstration rig, its plate level with the image plane.
Scene lineScene(LinePart const& part);

/// "height" in mm and "fault" of each part, as an array.
nlohmann::json linePartsJson(std::vector<LinePart> const& parts);

} // namespace vorn::sim
