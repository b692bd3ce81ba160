// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Registration of two scans of one surface with other noise, from 0.3 mm and 0.3 degrees away, normals
// included, on one thread; and how far the target's middle ends from its place, in micrometres.
#include <vorn/mv/registration/registration.hpp>

#include <benchmark/benchmark.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/core/utility.hpp>

#include <vorn/core/system.hpp>

#include "surface_inputs.hpp"

namespace {

using namespace vorn;

void registerScans(benchmark::State& state) {
  System::set("EnableDebugMode", false);
  int const threads = cv::getNumThreads();
  cv::setNumThreads(1);
  auto const side = static_cast<int>(state.range(0));
  bool const isGrid = state.range(1) != 0;
  bench::MovedScans const scans = bench::movedScans(side);
  mv::PointCloud const source(scans.source, isGrid);
  mv::PointCloud const target(scans.target, isGrid);
  mv::Registration found;
  for (auto _ : state) {
    found = mv::registerClouds(source, target);
  }
  state.counters["um"] = 1000.0 * scans.errorOfMiddle(found.targetFromSource);
  state.counters["iterations"] = found.iterations;
  cv::setNumThreads(threads);
}
BENCHMARK(registerScans)
    ->ArgNames({"side", "grid"})
    ->Args({316, 1})
    ->Args({316, 0})
    ->Args({1000, 1})
    ->Args({1000, 0})
    ->Unit(benchmark::kMillisecond);

} // namespace
