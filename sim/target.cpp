// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/target.hpp"

#include <cmath>
#include <cstdint>

#include "sim/noise.hpp"

namespace vorn::sim {
namespace {

bool isMarker(int column, int row) {
  return (column == 0 && row == 0) || (column == 1 && row == 0) || (column == 0 && row == 1);
}

/// The image of a disc's centre, if eight points of its rim are on the device's pixels too.
std::optional<cv::Point2d> wholeDisc(Device const& device, Pose const& device_from_target,
                                     cv::Point2d const& centre, double radius) {
  constexpr int rimPoints = 8;
  for (int i = 0; i < rimPoints; ++i) {
    double const angle = 2.0 * CV_PI * i / rimPoints;
    auto const rim = device.project(device_from_target * cv::Vec3d(centre.x + radius * std::cos(angle),
                                                                   centre.y + radius * std::sin(angle), 0));
    if (!rim || !device.contains(*rim)) {
      return std::nullopt;
    }
  }
  return device.project(device_from_target * cv::Vec3d(centre.x, centre.y, 0));
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

Object targetObject(Target const& target, Pose const& world_from_target, int label) {
  DotGrid const& grid = target.grid;
  // The plate is symmetric about the grid's middle, which need not be its origin; the texture stays on the
  // origin.
  cv::Vec2d const half((0.5 * (grid.columns.size() - 1) + target.border) * grid.pitch,
                       (0.5 * (grid.rows.size() - 1) + target.border) * grid.pitch);
  cv::Vec2d const centre(0.5 * (grid.columns.start + grid.columns.end - 1) * grid.pitch,
                         0.5 * (grid.rows.start + grid.rows.end - 1) * grid.pitch);
  Object object;
  object.name = "target";
  object.label = label;
  object.shape = Rectangle{half, centre};
  object.world_from_object = world_from_target;
  object.material.albedo = target.groundAlbedo;
  object.material.texture = grid;
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
      dot.x_in_world = world_from_target * cv::Vec3d(dot.pattern.x, dot.pattern.y, 0);
      double const radius = dotRadius(grid, column, row);
      dot.camera = wholeDisc(camera.device, cam_from_target, dot.pattern, radius);
      if (projector != nullptr) {
        dot.projector = wholeDisc(projector->device, projector->world_from_proj.inverse() * world_from_target,
                                  dot.pattern, radius);
      }
      dots.push_back(dot);
    }
  }
  return dots;
}

} // namespace vorn::sim
