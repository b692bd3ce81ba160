// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// The cleaning filters on an organized scan of a million points, beside a plain copy of the points.
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include <benchmark/benchmark.h>
#include <opencv2/core/utility.hpp>

#include <vorn/core/system.hpp>

#include "cloud_inputs.hpp"
#include "pointcloud/uniform_sampling.hpp"

namespace {

using namespace vorn;

constexpr int side = 1000;
constexpr float radius = 0.3F;

/// Runs a filter on all points present again and again; the octree is dropped before each run unless it is
/// kept.
template <class Filter>
void runFilter(benchmark::State& state, Filter const& filter, bool keepsOctree = true) {
  System::set("EnableDebugMode", false);
  int const threads = cv::getNumThreads();
  cv::setNumThreads(static_cast<int>(state.range(0)));
  mv::PointCloud cloud(bench::organizedScan(side), true);
  for (auto _ : state) {
    state.PauseTiming();
    cloud.state() = 0;
    if (!keepsOctree) {
      cloud.points();
    }
    state.ResumeTiming();
    filter(cloud);
  }
  state.counters["deleted"] = static_cast<double>(cloud.pointCount() - cloud.presentCount());
  cv::setNumThreads(threads);
}

void copyOfPoints(benchmark::State& state) {
  cv::Mat_<cv::Vec3f> const points = bench::organizedScan(side);
  cv::Mat_<cv::Vec3f> copy = points.clone();
  for (auto _ : state) {
    points.copyTo(copy);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(copyOfPoints)->Unit(benchmark::kMicrosecond);

void filterByZRange(benchmark::State& state) {
  runFilter(state, [](mv::PointCloud& cloud) { cloud.filterByZRange(499.0F, 522.0F); });
}
void filterByDz(benchmark::State& state) {
  runFilter(state, [](mv::PointCloud& cloud) { cloud.filterByDz(0.5F); });
}
void filterBorder(benchmark::State& state) {
  runFilter(state, [](mv::PointCloud& cloud) { cloud.filterBorder(5); });
}
void filterOutlier(benchmark::State& state) {
  runFilter(state, [](mv::PointCloud& cloud) { cloud.filterOutlier(); });
}
void calcBoundingBox(benchmark::State& state) {
  runFilter(state, [](mv::PointCloud& cloud) { cloud.calcBoundingBox(); });
}
BENCHMARK(filterByZRange)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(filterByDz)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(filterBorder)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(filterOutlier)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(calcBoundingBox)->Arg(1)->Unit(benchmark::kMicrosecond);

void filterSmallClusterOrganized(benchmark::State& state) {
  runFilter(state, [](mv::PointCloud& cloud) { cloud.filterSmallClusterOrganized(radius, 500); });
}
BENCHMARK(filterSmallClusterOrganized)->Arg(1)->Unit(benchmark::kMillisecond);

void clean(benchmark::State& state) {
  runFilter(state, [](mv::PointCloud& cloud) { cloud.clean(radius, 10); });
}
void buildAndClean(benchmark::State& state) {
  runFilter(
      state, [](mv::PointCloud& cloud) { cloud.clean(radius, 10); }, false);
}
void buildAndFilterSmallCluster(benchmark::State& state) {
  runFilter(
      state, [](mv::PointCloud& cloud) { cloud.filterSmallCluster(radius, 500); }, false);
}

/// Thins to one point a neighbourhood; the radius is in hundredths of a millimetre. The octree is kept.
void sampleUniformly(benchmark::State& state) {
  System::set("EnableDebugMode", false);
  mv::PointCloud cloud(bench::cloudOfKind(state.range(0), side), false);
  auto const sampleRadius = 0.01F * static_cast<float>(state.range(1));
  cloud.octree();
  for (auto _ : state) {
    cloud.state() = 0;
    mv::deleteDensePoints(cloud, sampleRadius);
  }
  state.SetLabel(bench::nameOfKind(state.range(0)));
  state.counters["kept"] = static_cast<double>(cloud.presentCount());
}
BENCHMARK(sampleUniformly)
    ->ArgsProduct({{0, 1, 2}, {15, 50, 200}})
    ->ArgNames({"kind", "radius"})
    ->Unit(benchmark::kMillisecond);

BENCHMARK(clean)->ArgName("threads")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(buildAndClean)->ArgName("threads")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(buildAndFilterSmallCluster)->Arg(1)->Unit(benchmark::kMillisecond);

} // namespace
