// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <opencv2/core.hpp>
#include <vector>

#include <vorn/mv/pointcloud/point_cloud.hpp>
#include <vorn/mv/registration/find_start.hpp>
#include <vorn/mv/registration/registration.hpp>
#include <vorn/mv/surface/height_map.hpp>

#include "cloud_inputs.hpp"
#include "memory_case.hpp"

namespace vorn::bench {

namespace {

/// The bytes that work on two scans of one surface takes, per point of one.
template <class Work>
double onTwo(Sizes const& sizes, bool areGrids, Work const& work) {
  cv::Mat_<cv::Vec3f> const points = organizedScan(sizes.cloudSide);
  mv::PointCloud const target(points.clone(), areGrids);
  mv::PointCloud const source(cv::Mat_<cv::Vec3f>(points + cv::Scalar(0.02, 0.03, 0.01)), areGrids);
  return workingBytes(points.total(), [&] { work(source, target); });
}

double map(Sizes const& sizes, double cellSize) {
  mv::PointCloud const cloud(organizedScan(sizes.cloudSide), true);
  mv::HeightMapSettings settings;
  settings.plane = mv::Plane3f({0, 0, 500}, {0, 0, -1});
  settings.cellSize = cellSize;
  return workingBytes(cloud.pointCount(), [&] {
    mv::HeightMap const made = mv::heightMapOf(cloud, settings);
    return cv::Mat(made.heights.rows, made.heights.cols, CV_8UC(8), made.heights.data); // as large as both
  });
}

void registerThem(mv::PointCloud const& source, mv::PointCloud const& target) {
  mv::registerClouds(source, target);
}

void findTheirStart(mv::PointCloud const& source, mv::PointCloud const& target) {
  mv::findStart(source, target);
}

} // namespace

std::vector<MemoryCase> registrationCases() {
  return {
      {"`registerClouds`, grids", [](Sizes const& s) { return onTwo(s, true, registerThem); }},
      {"`registerClouds`, lists", [](Sizes const& s) { return onTwo(s, false, registerThem); }},
      {"`findStart`, grids", [](Sizes const& s) { return onTwo(s, true, findTheirStart); }},
      {"`heightMapOf`", [](Sizes const& s) { return map(s, 2.0 * pitch); }},
      {"`heightMapOf`, cell size found", [](Sizes const& s) { return map(s, 0.0); }},
  };
}

} // namespace vorn::bench
