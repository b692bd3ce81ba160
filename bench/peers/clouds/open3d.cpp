// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "clouds/contender.hpp"

#ifdef VORN_HAS_OPEN3D

#include <tuple>

#include <open3d/geometry/PointCloud.h>

namespace vorn::bench {

namespace {

open3d::geometry::PointCloud open3dCloud(cv::Mat_<cv::Vec3f> const& points) {
  open3d::geometry::PointCloud cloud;
  for (cv::Vec3f const& point : points) {
    cloud.points_.emplace_back(point[0], point[1], point[2]);
  }
  return cloud;
}

void cleanOpen3d(benchmark::State& state) {
  open3d::geometry::PointCloud const cloud = open3dCloud(cloudOf(state));
  for (auto _ : state) {
    auto const kept = cloud.RemoveRadiusOutliers(cleanNeighbours, static_cast<double>(cleanRadius));
    benchmark::DoNotOptimize(std::get<0>(kept));
  }
}

void clustersOpen3d(benchmark::State& state) {
  open3d::geometry::PointCloud const cloud = open3dCloud(cloudOf(state));
  for (auto _ : state) {
    benchmark::DoNotOptimize(cloud.ClusterDBSCAN(static_cast<double>(cleanRadius), 1));
  }
}
} // namespace

void addOpen3d(std::vector<Contender>& contenders) {
  contenders.push_back({"clean", "open3d", cleanOpen3d, {0}});
  contenders.push_back({"clusters", "open3d", clustersOpen3d, {0}});
}

} // namespace vorn::bench

#else

namespace vorn::bench {
void addOpen3d(std::vector<Contender>& /*contenders*/) {}
} // namespace vorn::bench

#endif
