// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// The octree on scans, cubes and spheres of 100 k, 1 M and 5 M points. Searches are reported as time a query.
#include <vorn/mv/pointcloud/octree.hpp>

#include <benchmark/benchmark.h>

#include "cloud_inputs.hpp"

namespace {

using namespace vorn;
using mv::GridOctree;
using L2 = mv::Distance<cv::Vec3f>::L2;

constexpr long kinds[] = {0, 1, 2};
constexpr long sides[] = {316, 1000, 2236};

void build(benchmark::State& state) {
  cv::Mat_<cv::Vec3f> const points = bench::cloudOfKind(state.range(0), state.range(1));
  GridOctree tree;
  for (auto _ : state) {
    tree.init(points);
  }
  auto const count = static_cast<double>(points.total());
  state.SetLabel(bench::nameOfKind(state.range(0)));
  state.counters["per_point"] =
      benchmark::Counter(count, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["bytes_per_point"] = static_cast<double>(tree.memoryUsage()) / count;
}
BENCHMARK(build)
    ->ArgsProduct({{kinds[0], kinds[1], kinds[2]}, {sides[0], sides[1], sides[2]}})
    ->ArgNames({"kind", "side"})
    ->Unit(benchmark::kMillisecond);

template <class Search>
void runQueries(benchmark::State& state, Search const& search) {
  cv::Mat_<cv::Vec3f> const points = bench::cloudOfKind(state.range(0), state.range(1));
  GridOctree tree;
  tree.init(points);
  std::vector<int> const queries = bench::queryIndices(points.total());
  std::size_t found = 0;
  for (auto _ : state) {
    found = 0;
    for (int const query : queries) {
      found += search(tree, points(query));
    }
    benchmark::DoNotOptimize(found);
  }
  auto const count = static_cast<double>(queries.size());
  state.SetLabel(bench::nameOfKind(state.range(0)));
  state.counters["per_query"] =
      benchmark::Counter(count, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["found"] = static_cast<double>(found) / count;
}

void count(benchmark::State& state) {
  float const radius = bench::radiusForNeighbours(state.range(0), state.range(2));
  runQueries(state, [&](GridOctree const& tree, cv::Vec3f const& query) {
    return tree.radiusNeighborsCount<L2>(query, radius);
  });
}

void search(benchmark::State& state) {
  float const radius = bench::radiusForNeighbours(state.range(0), state.range(2));
  std::vector<unsigned> indices;
  runQueries(state, [&](GridOctree const& tree, cv::Vec3f const& query) {
    return tree.radiusNeighborsSearch<L2>(query, radius, indices);
  });
}

void knn(benchmark::State& state) {
  auto const k = static_cast<int>(state.range(2));
  std::vector<unsigned> indices;
  std::vector<float> distances;
  runQueries(state, [&](GridOctree const& tree, cv::Vec3f const& query) {
    return tree.knnSearch<L2>(query, k, indices, distances);
  });
}

void searchArguments(benchmark::internal::Benchmark* target, std::vector<long> const& sizes) {
  target->ArgNames({"kind", "side", "n"})->Unit(benchmark::kMillisecond);
  for (long const kind : kinds) {
    for (long const side : sides) {
      for (long const size : sizes) {
        target->Args({kind, side, size});
      }
    }
  }
}
void radiusArguments(benchmark::internal::Benchmark* target) {
  searchArguments(target, {10, 50, 500});
}
void knnArguments(benchmark::internal::Benchmark* target) {
  searchArguments(target, {1, 8, 32});
}
BENCHMARK(count)->Apply(radiusArguments);
BENCHMARK(search)->Apply(radiusArguments);
BENCHMARK(knn)->Apply(knnArguments);

} // namespace
