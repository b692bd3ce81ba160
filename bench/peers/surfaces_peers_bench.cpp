// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Normals and registration with other libraries, beside ours in one run, on noisy scans of a wavy surface of
// 100 k and 1 M points; times are those of the processor, whatever the number of threads. What they reach is
// counted beside: RMS angle to the true normals in degrees, normals missing in percent of the points that are
// there, and how far registration leaves the target's middle from its place in micrometres.
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "surfaces/contender.hpp"

namespace vorn::bench {

namespace {

/// Those who do the same with the same points run one after the other.
void registerInTurn(std::vector<SurfaceContender> const& contenders) {
  for (auto const& [work, sides] : surfaceWorks()) {
    for (long const side : sides) {
      for (SurfaceContender const& contender : contenders) {
        if (contender.work == work) {
          benchmark::RegisterBenchmark((contender.work + "/" + contender.name).c_str(), contender.run)
              ->Arg(side)
              ->ArgName("side")
              ->Unit(benchmark::kMillisecond)
              ->MeasureProcessCPUTime();
        }
      }
    }
  }
}

bool const isRegistered = [] {
  std::vector<SurfaceContender> contenders;
  addOurSurfaces(contenders);
  addPclSurfaces(contenders);
  addOpen3dSurfaces(contenders);
  registerInTurn(contenders);
  return true;
}();

} // namespace

} // namespace vorn::bench
