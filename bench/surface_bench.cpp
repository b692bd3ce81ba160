// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// What must not grow with the square of its input: the filling of a wide gap, and the matching of markers of
// which few are shared.
#include <cmath>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include <vorn/mv/registration/markers.hpp>

#include "surface/mesh_gaps.hpp"

namespace {

using namespace vorn;

/// A ring of triangles around a gap with so many edges of length 1.
void fillWideGap(benchmark::State& state) {
  auto const edges = static_cast<int>(state.range(0));
  std::vector<cv::Vec3f> vertices;
  std::vector<cv::Vec3i> ring;
  std::mt19937 random(1);
  std::normal_distribution<double> noise(0.0, 0.02);
  for (int i = 0; i < 2 * edges; ++i) {
    double const angle = 2.0 * CV_PI * i / edges;
    double const radius = edges / (2.0 * CV_PI) + (i < edges ? 0.0 : 1.0);
    vertices.emplace_back(cv::Vec3d(radius * std::cos(angle), radius * std::sin(angle), noise(random)));
  }
  for (int i = 0; i < edges; ++i) {
    int const next = (i + 1) % edges;
    ring.emplace_back(i, edges + i, next);
    ring.emplace_back(next, edges + i, edges + next);
  }
  std::vector<cv::Vec3f> const normals(vertices.size(), cv::Vec3f(0.0F, 0.0F, 1.0F));
  for (auto _ : state) {
    std::vector<cv::Vec3i> triangles = ring;
    mv::fillGaps(vertices, normals, triangles, {});
    benchmark::DoNotOptimize(triangles.data());
  }
}
BENCHMARK(fillWideGap)->ArgName("edges")->Arg(2000)->Arg(16000)->Unit(benchmark::kMillisecond);

/// So many markers in a cube, of which the second argument tells how many the other view shares.
void matchFewOfMany(benchmark::State& state) {
  std::mt19937 random(1);
  std::uniform_real_distribution<double> place(-100.0, 100.0);
  std::vector<cv::Vec3d> source;
  std::vector<cv::Vec3d> target;
  for (long i = 0; i < state.range(0); ++i) {
    source.emplace_back(place(random), place(random), place(random));
    target.emplace_back(place(random), place(random), place(random));
    if (i < state.range(1)) {
      target.back() = source.back();
    }
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(mv::matchMarkers(source, target).rms);
  }
}
BENCHMARK(matchFewOfMany)
    ->ArgNames({"markers", "shared"})
    ->Args({60, 10})
    ->Args({100, 60})
    ->Unit(benchmark::kMillisecond);

} // namespace
