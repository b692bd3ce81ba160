// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/core/mat.hpp>

#include "cloud_inputs.hpp"

/// What all contenders at neighbour search and cleaning share.
namespace vorn::bench {

constexpr float cleanRadius = 0.3F;
constexpr int cleanNeighbours = 10;
constexpr int clusterSize = 500;

/// The arguments of a benchmark: the kind of cloud, the root of its number of points, and what is asked for.
inline cv::Mat_<cv::Vec3f> cloudOf(benchmark::State const& state) {
  return cloudOfKind(state.range(0), state.range(1));
}
inline float radiusOf(benchmark::State const& state) {
  return radiusForNeighbours(state.range(0), state.range(2));
}

inline void perPoint(benchmark::State& state, std::size_t count) {
  state.counters["each"] =
      benchmark::Counter(static_cast<double>(count),
                         benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

/// Runs `search(query)` for points of the cloud and reports the time a query.
template <class Search>
void runQueries(benchmark::State& state, cv::Mat_<cv::Vec3f> const& points, Search const& search) {
  std::vector<int> const queries = queryIndices(points.total());
  for (auto _ : state) {
    std::size_t found = 0;
    for (int const query : queries) {
      found += search(points(query));
    }
    benchmark::DoNotOptimize(found);
  }
  perPoint(state, queries.size());
}

/// Who does a piece of work, and for what it is asked for (neighbours; 0 for nothing).
struct Contender {
  std::string work;
  std::string name;
  void (*run)(benchmark::State&);
  std::vector<long> sizes;
};

inline std::vector<long> radii() {
  return {10, 50, 500};
}
inline std::vector<long> nearest() {
  return {1, 8, 32};
}

/// Each library's contenders; none where it is not installed.
void addOurs(std::vector<Contender>& contenders);
void addNanoflann(std::vector<Contender>& contenders);
void addPcl(std::vector<Contender>& contenders);
void addOpen3d(std::vector<Contender>& contenders);

} // namespace vorn::bench
