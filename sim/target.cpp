// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/target.hpp"

#include <cmath>
#include <cstdint>
#include <utility>

#include "sim/noise.hpp"

namespace vorn::sim {
namespace {

bool isMarker(int column, int row) {
  return (column == 0 && row == 0) || (column == 1 && row == 0) || (column == 0 && row == 1);
}

/// The image of a disc's centre, if eight points of its rim are on the device's pixels too.
std::optional<cv::Point2d> wholeDisc(Device const& device, Pose const& device_from_target,
                                     cv::Vec3d const& centre, double radius) {
  constexpr int rimPoints = 8;
  for (int i = 0; i < rimPoints; ++i) {
    double const angle = 2.0 * CV_PI * i / rimPoints;
    auto const rim = device.project(device_from_target *
                                    (centre + radius * cv::Vec3d(std::cos(angle), std::sin(angle), 0)));
    if (!rim || !device.contains(*rim)) {
      return std::nullopt;
    }
  }
  return device.project(device_from_target * centre);
}

/// From the middle of the dots to the outermost ones, mm.
cv::Vec2d halfSizeOf(DotGrid const& grid) {
  return cv::Vec2d(grid.columns.size() - 1, grid.rows.size() - 1) * (0.5 * grid.pitch);
}

/// The middle of the dots, which need not be their origin.
cv::Vec2d centreOf(DotGrid const& grid) {
  return cv::Vec2d(grid.columns.start + grid.columns.end - 1, grid.rows.start + grid.rows.end - 1) *
         (0.5 * grid.pitch);
}

} // namespace

bool hasDot(DotGrid const& grid, int column, int row) {
  return !grid.isStaggered || (column + row) % 2 == 0;
}

double dotRadius(DotGrid const& grid, int column, int row) {
  double radius = 0.5 * grid.pitch * grid.dotDiameter;
  if (grid.hasMarkers && isMarker(column, row)) {
    radius *= grid.markerRatio;
  }
  if (grid.sizeScatter > 0) {
    constexpr std::int64_t side = 65536; // more than a grid has columns
    radius *= 1.0 + grid.sizeScatter * gaussian(scramble(static_cast<std::uint64_t>(row * side + column)));
  }
  return radius;
}

Target chessboard(cv::Size const& corners, double side) {
  return printedBoard(corners, side, chessboardParts(corners, side));
}

Target printedBoard(cv::Size const& corners, double side, std::vector<cv::Rect2d> parts) {
  constexpr double paper = 0.85;
  constexpr double ink = 0.12;
  Target target;
  target.grid = {side, {0, corners.width}, {0, corners.height}, paper, false};
  target.grid.dotDiameter = 0; // corners are points
  target.groundAlbedo = paper;
  target.border = 1.6; // squares of the board and a rim beyond them
  target.board = std::make_shared<Board const>(std::move(parts), ink, side);
  return target;
}

Pose withMiddleAt(Pose const& world_from_middle, Target const& target) {
  cv::Vec2d const middle = centreOf(target.grid);
  return world_from_middle * Pose{cv::Matx33d::eye(), {-middle[0], -middle[1], 0}};
}

double targetHeight(Target const& target, cv::Point2d const& place) {
  cv::Vec2d const half = halfSizeOf(target.grid);
  cv::Vec2d const centre = centreOf(target.grid);
  double const u = (place.x - centre[0]) / half[0];
  double const v = (place.y - centre[1]) / half[1];
  return target.sag[0] * u * u + target.sag[1] * v * v;
}

Object targetObject(Target const& target, Pose const& world_from_target, int label) {
  DotGrid const& grid = target.grid;
  // The plate is symmetric about the grid's middle; the texture stays on the origin.
  cv::Vec2d const dots = halfSizeOf(grid);
  double const ground = target.border * grid.pitch;
  cv::Vec2d const half = dots + cv::Vec2d(ground, ground);
  Object object;
  object.name = "target";
  object.label = label;
  object.shape = Rectangle{half, centreOf(grid)};
  if (target.sag != cv::Vec2d()) {
    HeightField bent;
    bent.halfSize = half;
    bent.centre = centreOf(grid);
    bent.sag = {target.sag[0] * std::pow(half[0] / dots[0], 2),
                target.sag[1] * std::pow(half[1] / dots[1], 2)};
    object.shape = bent;
  }
  object.world_from_object = world_from_target;
  object.material.albedo = target.groundAlbedo;
  if (target.board) {
    object.material.texture = target.board;
  } else {
    object.material.texture = grid;
  }
  return object;
}

std::vector<DotTruth> dotTruth(Target const& target, Pose const& world_from_target, Camera const& camera,
                               Projector const* projector) {
  DotGrid const& grid = target.grid;
  Pose const cam_from_target = camera.cam_from_world * world_from_target;
  std::vector<DotTruth> dots;
  for (int row = grid.rows.start; row < grid.rows.end; ++row) {
    for (int column = grid.columns.start; column < grid.columns.end; ++column) {
      if (!hasDot(grid, column, row)) {
        continue;
      }
      DotTruth dot;
      dot.index = {column, row};
      dot.pattern = cv::Point2d(column, row) * grid.pitch;
      cv::Vec3d const x_in_target(dot.pattern.x, dot.pattern.y, targetHeight(target, dot.pattern));
      dot.x_in_world = world_from_target * x_in_target;
      double const radius = dotRadius(grid, column, row);
      dot.camera = wholeDisc(camera.device, cam_from_target, x_in_target, radius);
      if (projector != nullptr) {
        dot.projector = wholeDisc(projector->device, projector->world_from_proj.inverse() * world_from_target,
                                  x_in_target, radius);
      }
      dots.push_back(dot);
    }
  }
  return dots;
}

} // namespace vorn::sim
