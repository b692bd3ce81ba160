// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <benchmark/benchmark.h>
#include <opencv2/core/utility.hpp>

#include <vorn/core/system.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>
#include <vorn/mv/registration/registration.hpp>

#include "surface_inputs.hpp"

namespace vorn::bench {

/// Registers two scans again and again on one thread, the normals of both computed each time, and counts how
/// far the target's middle ends from its place, in micrometres.
inline mv::Registration timeRegistration(benchmark::State& state, MovedScans const& scans, bool isGrid) {
  System::set("EnableDebugMode", false);
  int const threads = cv::getNumThreads();
  cv::setNumThreads(1);
  mv::PointCloud const source(scans.source, isGrid);
  mv::PointCloud const target(scans.target, isGrid);
  mv::Registration found;
  for (auto _ : state) {
    found = mv::registerClouds(source, target);
  }
  state.counters["um"] = 1000.0 * scans.errorOfMiddle(found.targetFromSource);
  cv::setNumThreads(threads);
  return found;
}

} // namespace vorn::bench
