// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/surface/simplify.hpp>

#include <cmath>
#include <functional>
#include <queue>
#include <string>
#include <tuple>
#include <vector>

#include "core/error.hpp"
#include "core/progress.hpp"
#include "surface/collapsing_mesh.hpp"

namespace vorn::mv {

namespace {

/// Collapses in the order of their cost. Of equal ones the vertices' numbers decide, so that the result is
/// the same everywhere.
class Simplifier {
public:
  Simplifier(SurfaceMesh const& mesh, SimplifySettings const& settings)
      : mesh_(mesh, settings.maxError), versions_(mesh.vertices.size()), settings_(settings),
        first_(mesh.triangles.size()) {
    for (std::size_t vertex = 0; vertex < mesh.vertices.size(); ++vertex) {
      offer(static_cast<int>(vertex));
    }
  }

  SurfaceMesh run(Progress const& progress) {
    constexpr std::size_t stepsAtOnce = 4096;
    std::size_t step = 0;
    while (!queue_.empty() && mesh_.triangleCount() > settings_.minTriangles) {
      if (step++ % stepsAtOnce == 0) {
        progress.at("simplifying",
                    1.0 - static_cast<double>(mesh_.triangleCount()) / static_cast<double>(first_));
      }
      auto const [cost, from, to, version] = queue_.top();
      queue_.pop();
      if (version != versionOf(from, to)) {
        continue;
      }
      // Costs only rise. Around a vertex of many triangles they are looked up when their turn comes.
      if (mesh_.cost(from, to) > cost) {
        offer(from, to);
        continue;
      }
      if (mesh_.collapse(from, to)) {
        offerAfter(from, to);
      }
    }
    return mesh_.finish();
  }

private:
  using Step = std::tuple<double, int, int, unsigned>;

  unsigned versionOf(int from, int to) const {
    return versions_[static_cast<std::size_t>(from)] + versions_[static_cast<std::size_t>(to)];
  }

  void offerAfter(int from, int to) {
    ++versions_[static_cast<std::size_t>(from)];
    // What was refused elsewhere around `to` is almost always refused again: where there are many triangles
    // asking all would take the square of their number.
    constexpr std::size_t many = 64;
    bool const isCrowded = mesh_.trianglesAround(to) > many;
    if (!isCrowded) {
      ++versions_[static_cast<std::size_t>(to)];
    }
    for (int const neighbour : isCrowded ? mesh_.touched() : mesh_.neighbours(to)) {
      offer(to, neighbour);
      offer(neighbour, to);
    }
  }

  void offer(int from) {
    for (int const to : mesh_.neighbours(from)) {
      offer(from, to);
    }
  }

  void offer(int from, int to) { queue_.emplace(mesh_.cost(from, to), from, to, versionOf(from, to)); }

  CollapsingMesh mesh_;
  std::vector<unsigned> versions_;
  SimplifySettings settings_;
  std::size_t first_;
  std::priority_queue<Step, std::vector<Step>, std::greater<>> queue_;
};

} // namespace

SurfaceMesh simplified(SurfaceMesh const& mesh, SimplifySettings const& settings, Observer* observer) {
  if (!(settings.maxError > 0.0) || !std::isfinite(settings.maxError)) {
    throw error("maxError is " + std::to_string(settings.maxError) + ", not a number above 0", "simplified");
  }
  MeshFigures const figures = figuresOf(mesh);
  if (figures.faultyEdges > 0) {
    throw error(std::to_string(figures.faultyEdges) +
                    " edges have more than two triangles or two that face opposite sides",
                "simplified");
  }
  return Simplifier(mesh, settings).run(Progress(observer));
}

} // namespace vorn::mv
