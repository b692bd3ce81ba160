// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Neighbour search and cleaning with other libraries, beside ours in one run, on an organized scan, a random
// cube and a spherical shell (kind 0, 1, 2) of 100 k and 1 M points, and on a scan of 5 M; one thread unless
// the name says otherwise.
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "clouds/contender.hpp"

namespace vorn::bench {

namespace {

void registerAt(Contender const& contender, long kind, long side, long size) {
  benchmark::RegisterBenchmark((contender.work + "/" + contender.name).c_str(), contender.run)
      ->Args({kind, side, size})
      ->ArgNames({"kind", "side", "n"})
      ->Unit(benchmark::kMillisecond)
      ->MeasureProcessCPUTime();
}

/// Those who do the same with the same points run one after the other. The largest cloud is of one kind only.
void registerInTurn(std::vector<Contender> const& contenders) {
  for (auto const& [kind, side] :
       {std::pair{0L, 316L}, {1L, 316L}, {2L, 316L}, {0L, 1000L}, {1L, 1000L}, {2L, 1000L}, {0L, 2236L}}) {
    for (Contender const& first : contenders) {
      if (first.name != "ours") {
        continue;
      }
      for (long const size : first.sizes) {
        for (Contender const& contender : contenders) {
          if (contender.work == first.work) {
            registerAt(contender, kind, side, size);
          }
        }
      }
    }
  }
}

bool const isRegistered = [] {
  std::vector<Contender> contenders;
  addOurs(contenders);
  addNanoflann(contenders);
  addPcl(contenders);
  addOpen3d(contenders);
  registerInTurn(contenders);
  return true;
}();

} // namespace

} // namespace vorn::bench
