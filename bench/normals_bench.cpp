// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Normals of a wavy scan of a million points with noise, organized and not, and their error; with a share of
// the points missing.
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include <benchmark/benchmark.h>
#include <opencv2/core/utility.hpp>

#include <vorn/core/system.hpp>

#include "surface_inputs.hpp"

namespace {

using namespace vorn;

constexpr int side = 1000;

void normals(benchmark::State& state, mv::PointCloud& cloud, bench::NoisyScan const& scan,
             mv::NormalSettings const& settings) {
  System::set("EnableDebugMode", false);
  int const threads = cv::getNumThreads();
  cv::setNumThreads(1);
  mv::NormalResult result;
  for (auto _ : state) {
    cloud.points();
    result = cloud.calcNormals(settings);
  }
  state.counters["degrees"] = bench::rmsAngle(cloud.normals(), scan.normals);
  state.counters["missing"] = static_cast<double>(result.missing);
  cv::setNumThreads(threads);
}

void gridNormals(benchmark::State& state) {
  auto const scan = bench::noisyScan(side, static_cast<double>(state.range(0)) / 100.0);
  mv::PointCloud cloud(scan.points, true);
  normals(state, cloud, scan, {});
}
BENCHMARK(gridNormals)->ArgName("missing%")->Arg(0)->Arg(5)->Unit(benchmark::kMillisecond);

/// Octree included.
void neighbourNormals(benchmark::State& state) {
  auto const scan = bench::noisyScan(side, 0.0);
  mv::PointCloud cloud(scan.points, false);
  mv::NormalSettings settings;
  settings.orientation =
      state.range(0) == 0 ? mv::NormalOrientation::TowardsViewpoint : mv::NormalOrientation::Consistent;
  normals(state, cloud, scan, settings);
}
BENCHMARK(neighbourNormals)->ArgName("consistent")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

} // namespace
