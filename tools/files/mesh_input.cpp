// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/mesh_input.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include <vorn/mv/surface/sample_mesh.hpp>

namespace vorn::tools {

namespace {

/// What a mesh's triangles are.
struct Triangles {
  double area = 0.0;
  double ofLarge = 0.0; ///< of triangles with an edge above a length
  double points = 0.0;  ///< about how many `sampleMesh` takes for that length
};

Triangles trianglesOf(graphic::GraphicObject const& object, double edge) {
  Triangles all;
  for (cv::Vec3i const& triangle : object.triangles()) {
    auto const corner = [&](int i) {
      return cv::Vec3d(object.vertices()[static_cast<std::size_t>(triangle[i])]);
    };
    cv::Vec3d const one = corner(1) - corner(0);
    cv::Vec3d const other = corner(2) - corner(0);
    double const area = 0.5 * cv::norm(one.cross(other));
    double const longest = std::max({cv::norm(one), cv::norm(other), cv::norm(one - other)});
    all.area += area;
    if (longest > edge) {
      all.ofLarge += area;
      all.points += 4.0 * area / (edge * edge) + 2.0 * longest / edge;
    }
  }
  return all;
}

} // namespace

mv::SurfaceMesh meshOfObject(graphic::GraphicObject const& object) {
  mv::SurfaceMesh mesh;
  mesh.vertices = object.vertices();
  mesh.triangles = object.triangles();
  for (cv::Vec4b const& color : object.colors()) {
    mesh.colors.emplace_back(color[2], color[1], color[0]);
  }
  mesh.normals = object.hasNormals() || !object.hasTriangles() ? object.normals() : vertexNormalsOf(mesh);
  return mesh;
}

mv::PointCloud surfacePointsOf(CloudInput const& input) {
  constexpr double squares = 30000.0; // of the longest edge, in the area: some 150 000 points
  constexpr double mostPoints = 1e6;  // where needles, as of thin rods, take more
  constexpr double coarser = 1.25;
  constexpr double mostOfLarge =
      0.01; // of the area, which the corners of large triangles leave without points
  double const area = trianglesOf(input.object, std::numeric_limits<double>::infinity()).area;
  if (!(area > 0.0) || !std::isfinite(area)) {
    return input.cloud;
  }
  double edge = std::sqrt(area / squares);
  Triangles triangles = trianglesOf(input.object, edge);
  while (triangles.points > mostPoints) {
    edge *= coarser;
    triangles = trianglesOf(input.object, edge);
  }
  if (triangles.ofLarge <= mostOfLarge * area) {
    return input.cloud;
  }
  mv::PointCloud points = mv::sampleMesh(meshOfObject(input.object), edge);
  points.setOffset(input.cloud.offset());
  return points;
}

} // namespace vorn::tools
