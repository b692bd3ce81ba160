// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <opencv2/core/types.hpp>
#include <optional>
#include <vector>

#include "sim/rig.hpp"
#include "sim/scene.hpp"

namespace vorn::sim {

/// A circle-grid calibration target: dots at (column, row) * pitch in the plane z = 0 of its own frame (x
/// right, y down seen from the front), by default half the pitch in diameter, and three larger marker dots at
/// (0, 0), (1, 0) and (0, 1). Ranges are half open: columns [-10, 11) are the 21 columns -10 ... 10.
struct Target {
  DotGrid grid = {15, {-10, 11}, {-7, 8}, 0.85, true};
  double groundAlbedo = 0.25;
  /// Ground beyond the outermost dot centres, in pitches.
  double border = 1.2;
  /// How far the outermost dots along x and along y stand behind the middle, mm: a bent plate.
  cv::Vec2d sag = {0, 0};
  /// What is printed in place of dots, whose places are then the inner corners of a chessboard.
  std::shared_ptr<Board const> board = {};
};

/// A chessboard with so many inner corners, the first of which is the target's origin.
Target chessboard(cv::Size const& corners, double side);

/// The same with other dark parts, such as those of markers too.
Target printedBoard(cv::Size const& corners, double side, std::vector<cv::Rect2d> parts);

/// The pose of a target whose middle is to be where a pose has the origin.
Pose withMiddleAt(Pose const& world_from_middle, Target const& target);

/// How far a place of the target, mm from the dots' origin, stands behind the plane z = 0.
double targetHeight(Target const& target, cv::Point2d const& place);

/// Whether a dot stands at a grid position inside the ranges.
bool hasDot(DotGrid const& grid, int column, int row);

/// Radius of the dot at a grid position, mm.
double dotRadius(DotGrid const& grid, int column, int row);

/// The target as an object of a scene.
Object targetObject(Target const& target, Pose const& world_from_target, int label = 1);

/// One dot of a target view.
struct DotTruth {
  cv::Point index;
  /// The centre on the target, mm.
  cv::Point2d pattern;
  cv::Vec3d x_in_world;
  /// The image of the dot's centre in the camera and in the projector, each only where the whole dot falls
  /// on that device's pixels.
  std::optional<cv::Point2d> camera;
  std::optional<cv::Point2d> projector;
};

/// Where the dots of a target are seen; `projector` may be null.
std::vector<DotTruth> dotTruth(Target const& target, Pose const& world_from_target, Camera const& camera,
                               Projector const* projector);

} // namespace vorn::sim
