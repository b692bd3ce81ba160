// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Registration of two scans of one surface with other noise, from 0.3 mm and 0.3 degrees away, normals
// included, on one thread; and how far the target's middle ends from its place, in micrometres.
#include <benchmark/benchmark.h>

#include "registration_loop.hpp"

namespace {

using namespace vorn;

void registerScans(benchmark::State& state) {
  bench::MovedScans const scans = bench::movedScans(static_cast<int>(state.range(0)));
  mv::Registration const found = bench::timeRegistration(state, scans, state.range(1) != 0);
  state.counters["iterations"] = found.iterations;
}
BENCHMARK(registerScans)
    ->ArgNames({"side", "grid"})
    ->Args({316, 1})
    ->Args({316, 0})
    ->Args({1000, 1})
    ->Args({1000, 0})
    ->Unit(benchmark::kMillisecond);

} // namespace
