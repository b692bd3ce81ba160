// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <string>

#include <opencv2/core.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "core/error.hpp"
#include "pointcloud/grid_normals.hpp"
#include "pointcloud/grid_tile.hpp"
#include "pointcloud/neighbour_normals.hpp"
#include "pointcloud/normal_orientation.hpp"

namespace vorn::mv {

namespace {

constexpr int fewestNeighbours = 3;
constexpr int mostNeighbours = 1000;

void checkSettings(NormalSettings const& settings) {
  auto const refuse = [](std::string const& name, auto value, std::string const& bound) {
    throw error(name + " is " + std::to_string(value) + ", not " + bound, "calcNormals");
  };
  if (settings.windowRadius < 1 || settings.windowRadius > GridTile::largestRadius) {
    refuse("windowRadius", settings.windowRadius, "1 .. " + std::to_string(GridTile::largestRadius));
  }
  if (settings.neighbourCount < fewestNeighbours || settings.neighbourCount > mostNeighbours) {
    refuse("neighbourCount", settings.neighbourCount,
           std::to_string(fewestNeighbours) + " .. " + std::to_string(mostNeighbours));
  }
  if (!(settings.maxStep >= 0.0F)) {
    refuse("maxStep", settings.maxStep, "at least 0");
  }
  if (!(settings.radius >= 0.0F)) {
    refuse("radius", settings.radius, "at least 0");
  }
  cv::Point3f const& view = settings.viewpoint;
  if (!std::isfinite(view.x) || !std::isfinite(view.y) || !std::isfinite(view.z)) {
    throw error("viewpoint is not finite", "calcNormals");
  }
}

std::size_t countNormals(cv::Mat_<cv::Vec3f> const& normals) {
  std::size_t count = 0;
  for (cv::Vec3f const& normal : normals) {
    count += normal != cv::Vec3f() ? 1 : 0;
  }
  return count;
}

} // namespace

NormalResult PointCloud::calcNormals(NormalSettings const& settings, Observer* observer) {
  checkSettings(settings);
  checkSizes();
  NormalResult result;
  if (isEmpty()) {
    return result;
  }
  Progress const progress(observer);
  bool const usesGrid = organized_ && continuous_;
  bool const isConsistent = settings.orientation == NormalOrientation::Consistent ||
                            (settings.orientation == NormalOrientation::Automatic && !usesGrid);
  constexpr double shareOfPlanes = 0.7;
  Progress const planes = progress.part(0.0, isConsistent ? shareOfPlanes : 1.0);
  NormalField field = usesGrid ? gridNormals(points_, state_, settings, planes)
                               : neighbourNormals(points_, state_, octree(), settings, planes);
  if (isConsistent) {
    orientConsistently(points_, state_, octree(), settings.viewpoint, field.normals,
                       progress.part(shareOfPlanes, 1.0));
  }
  result.computed = countNormals(field.normals);
  result.missing = presentCount() - result.computed;
  result.fitError = field.fitError;
  result.curvature = field.curvature;
  normals_ = field.normals;
  return result;
}

} // namespace vorn::mv
