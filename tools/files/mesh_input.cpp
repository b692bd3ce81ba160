// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/mesh_input.hpp"

#include <algorithm>
#include <cmath>

#include <vorn/mv/surface/sample_mesh.hpp>

namespace vorn::tools {

namespace {

struct Areas {
  double all = 0.0;
  double ofLarge = 0.0; ///< of triangles with an edge above a length
};

Areas areasOf(graphic::GraphicObject const& object, double edge) {
  Areas areas;
  for (cv::Vec3i const& triangle : object.triangles()) {
    auto const corner = [&](int i) {
      return cv::Vec3d(object.vertices()[static_cast<std::size_t>(triangle[i])]);
    };
    cv::Vec3d const one = corner(1) - corner(0);
    cv::Vec3d const other = corner(2) - corner(0);
    double const area = 0.5 * cv::norm(one.cross(other));
    areas.all += area;
    if (std::max({cv::norm(one), cv::norm(other), cv::norm(one - other)}) > edge) {
      areas.ofLarge += area;
    }
  }
  return areas;
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
  constexpr double mostOfLarge =
      0.01; // of the area, which the corners of large triangles leave without points
  double const area = areasOf(input.object, 0.0).all;
  double const edge = std::sqrt(area / squares);
  if (!(area > 0.0) || !std::isfinite(area) || areasOf(input.object, edge).ofLarge <= mostOfLarge * area) {
    return input.cloud;
  }
  mv::PointCloud points = mv::sampleMesh(meshOfObject(input.object), edge);
  points.setOffset(input.cloud.offset());
  return points;
}

} // namespace vorn::tools
