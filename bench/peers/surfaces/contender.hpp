// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include "surface_inputs.hpp"

/// What all contenders at normals and registration share.
namespace vorn::bench {

/// Lengths are in millimetres.
constexpr int neighbourCount = 20;
constexpr double pairDistance = 1.0;
constexpr int mostIterations = 30;
constexpr double missingShare = 0.05;

/// Who does a piece of work.
struct SurfaceContender {
  std::string work;
  std::string name;
  void (*run)(benchmark::State&);
};

/// Pieces of work and the roots of their numbers of points. Peers that register get the normals for nothing,
/// and as they know no grid the same scans are told to us as a mere list of points as well.
inline std::vector<std::pair<std::string, std::vector<long>>> surfaceWorks() {
  return {{"grid normals", {1000}},
          {"grid normals with gaps", {1000}},
          {"list normals", {1000}},
          {"grid registration", {316, 1000}},
          {"list registration", {316, 1000}}};
}

inline NoisyScan scanOf(benchmark::State const& state, double missing = 0.0) {
  return noisyScan(static_cast<int>(state.range(0)), missing);
}

inline MovedScans scansOf(benchmark::State const& state) {
  return movedScans(static_cast<int>(state.range(0)));
}

/// Normals are judged in the same way whoever found them; NaN and (0, 0, 0) are missing.
inline void countNormals(benchmark::State& state, NoisyScan const& scan, cv::Mat_<cv::Vec3f> const& normals) {
  double points = 0.0;
  double missing = 0.0;
  for (int row = 0; row < scan.points.rows; ++row) {
    for (int column = 0; column < scan.points.cols; ++column) {
      bool const isPoint = !std::isnan(scan.points(row, column)[2]);
      points += isPoint ? 1.0 : 0.0;
      missing += isPoint && !(cv::norm(normals(row, column)) > 0.5) ? 1.0 : 0.0;
    }
  }
  state.counters["degrees"] = rmsAngle(normals, scan.normals);
  state.counters["missing%"] = 100.0 * missing / points;
}

/// Each library's contenders; none where it is not installed.
void addOurSurfaces(std::vector<SurfaceContender>& contenders);
void addPclSurfaces(std::vector<SurfaceContender>& contenders);
void addOpen3dSurfaces(std::vector<SurfaceContender>& contenders);

} // namespace vorn::bench
