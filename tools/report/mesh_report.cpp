// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/report/mesh_report.hpp"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "tools/files/json_file.hpp"
#include "tools/report/printed.hpp"

namespace vorn::tools {

namespace {

/// A closed line of edges where a mesh ends.
struct Boundary {
  std::size_t vertices;
  double length;
  cv::Vec3d middle;
};

Boundary boundaryOf(mv::SurfaceMesh const& mesh, std::vector<int> const& loop) {
  Boundary boundary{loop.size(), 0.0, {}};
  for (std::size_t i = 0; i < loop.size(); ++i) {
    cv::Vec3d const here(mesh.vertices[static_cast<std::size_t>(loop[i])]);
    cv::Vec3d const next(mesh.vertices[static_cast<std::size_t>(loop[(i + 1) % loop.size()])]);
    boundary.length += cv::norm(next - here);
    boundary.middle += here * (1.0 / static_cast<double>(loop.size()));
  }
  return boundary;
}

/// The boundaries, the longest first.
std::vector<Boundary> boundariesOf(mv::SurfaceMesh const& mesh, mv::MeshFigures const& figures) {
  std::vector<Boundary> boundaries;
  for (std::vector<int> const& loop : figures.boundaries) {
    boundaries.push_back(boundaryOf(mesh, loop));
  }
  std::stable_sort(boundaries.begin(), boundaries.end(),
                   [](Boundary const& a, Boundary const& b) { return a.length > b.length; });
  return boundaries;
}

void print(mv::SurfaceMesh const& mesh, mv::MeshFigures const& figures,
           std::vector<Boundary> const& boundaries) {
  std::cout << printed("triangles   %zu over %zu vertices\n", mesh.triangles.size(), mesh.vertices.size())
            << printed("area        %.6g mm2\n", figures.area);
  if (std::isnan(figures.volume)) {
    std::cout << "volume      none: the mesh is not closed\n";
  } else {
    std::cout << printed("volume      %.6g mm3\n", figures.volume);
  }
  std::cout << printed("pieces      %zu\n", figures.pieces)
            << printed("boundaries  %zu\n", boundaries.size());
  constexpr std::size_t shown = 5;
  for (std::size_t i = 0; i < std::min(shown, boundaries.size()); ++i) {
    Boundary const& one = boundaries[i];
    std::cout << printed("  %.4g mm long, %zu vertices, around (%.2f, %.2f, %.2f)\n", one.length,
                         one.vertices, one.middle[0], one.middle[1], one.middle[2]);
  }
  if (boundaries.size() > shown) {
    std::cout << printed("  and %zu shorter ones\n", boundaries.size() - shown);
  }
}

} // namespace

void reportMesh(mv::SurfaceMesh const& mesh, Report& report) {
  mv::MeshFigures const figures = figuresOf(mesh);
  std::vector<Boundary> const boundaries = boundariesOf(mesh, figures);
  print(mesh, figures, boundaries);
  if (figures.faultyEdges > 0) {
    report.warn(std::to_string(figures.faultyEdges) +
                " edges have more than two triangles or two that face opposite sides: area and volume are "
                "not those of a surface");
  }
  if (figures.degenerateTriangles > 0) {
    report.warn(std::to_string(figures.degenerateTriangles) + " triangles have no area");
  }
  if (figures.volume < 0.0) {
    report.warn("the volume is negative: the triangles face inwards");
  }
  nlohmann::json loops = nlohmann::json::array();
  for (Boundary const& one : boundaries) {
    loops.push_back({{"vertices", one.vertices},
                     {"length", one.length},
                     {"middle", {one.middle[0], one.middle[1], one.middle[2]}}});
  }
  report["mesh"] = {{"vertices", mesh.vertices.size()},
                    {"triangles", mesh.triangles.size()},
                    {"area", figures.area},
                    {"volume", finiteOrNull(figures.volume)},
                    {"pieces", figures.pieces},
                    {"boundaries", std::move(loops)},
                    {"faultyEdges", figures.faultyEdges},
                    {"degenerateTriangles", figures.degenerateTriangles}};
}

} // namespace vorn::tools
