// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "surface/mesh_points.hpp"

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "core/error.hpp"
#include "pointcloud/list_spacing.hpp"
#include "pointcloud/point_access.hpp"
#include "surface/fusion/point_cells.hpp"
#include "surface/point_triangulation.hpp"

namespace vorn::mv {

namespace {

/// Points of a cloud that have a normal, and their cells.
struct Oriented {
  std::vector<cv::Vec3f> points;
  std::vector<cv::Vec3f> normals;
  std::vector<unsigned> cells;
};

Oriented orientedPoints(PointCloud const& cloud) {
  Oriented oriented;
  for (int row = 0; row < cloud.points().rows; ++row) {
    for (int column = 0; column < cloud.points().cols; ++column) {
      cv::Vec3f const& normal = cloud.normals()(row, column);
      double const length = std::sqrt(static_cast<double>(normal.dot(normal)));
      if (cloud.state()(row, column) == 0 && isFinite(cloud.points()(row, column).val) && length > 0.5) {
        oriented.points.push_back(cloud.points()(row, column));
        oriented.normals.push_back(normal * static_cast<float>(1.0 / length));
        oriented.cells.push_back(static_cast<unsigned>(row * cloud.points().cols + column));
      }
    }
  }
  return oriented;
}

/// Leaves out points that lie nearer than `least` to an earlier one.
Oriented spread(Oriented const& all, float least) {
  PointCells const cells(all.points, least);
  std::vector<bool> isKept(all.points.size(), false);
  std::vector<std::uint32_t> cellOf(all.points.size());
  for (std::uint32_t cell = 0; cell < cells.cellCount(); ++cell) {
    for (std::uint32_t i = cells.pointsOf(cell).first; i < cells.pointsOf(cell).end; ++i) {
      cellOf[cells.order()[i]] = cell;
    }
  }
  Oriented kept;
  for (std::size_t point = 0; point < all.points.size(); ++point) {
    bool isFree = true;
    for (PointCells::Range const& row : cells.around(cellOf[point])) {
      PointCells::Range const range = cells.pointsOf(row);
      for (std::uint32_t i = range.first; i < range.end && isFree; ++i) {
        std::uint32_t const near = cells.order()[i];
        cv::Vec3f const apart = all.points[near] - all.points[point];
        isFree = !isKept[near] || apart.dot(apart) >= least * least;
      }
    }
    isKept[point] = isFree;
    if (isFree) {
      kept.points.push_back(all.points[point]);
      kept.normals.push_back(all.normals[point]);
      kept.cells.push_back(all.cells[point]);
    }
  }
  return kept;
}

} // namespace

SurfaceMesh meshOfPoints(PointCloud const& cloud, MeshSettings const& settings, Progress const& progress) {
  PointCloud oriented = cloud;
  float const spacing = listSpacingOf(oriented);
  if (!(spacing > 0.0F)) {
    throw error("The " + std::to_string(cloud.presentCount()) + " present points are one place or none",
                "meshOf");
  }
  if (!cloud.hasNormals()) {
    NormalSettings normals;
    normals.viewpoint = settings.viewpoint;
    oriented.calcNormals(normals);
  }
  constexpr float leastOverSpacing = 0.1F;
  constexpr float edgeOverSpacing = 4.0F;
  Oriented points = spread(orientedPoints(oriented), leastOverSpacing * spacing);
  float const maxEdge = settings.maxEdge > 0.0F ? settings.maxEdge : edgeOverSpacing * spacing;
  SurfaceMesh mesh;
  mesh.triangles = triangulatedPoints(points.points, points.normals, maxEdge, progress);
  if (mesh.triangles.empty()) {
    throw error("No three neighbours of the " + std::to_string(cloud.presentCount()) +
                    " present points can be joined",
                "meshOf");
  }
  std::vector<int> vertexOf(points.points.size(), -1);
  for (cv::Vec3i& triangle : mesh.triangles) {
    for (int& corner : triangle.val) {
      auto const point = static_cast<std::size_t>(corner);
      if (vertexOf[point] < 0) {
        vertexOf[point] = static_cast<int>(mesh.vertices.size());
        mesh.vertices.push_back(points.points[point]);
        mesh.normals.push_back(points.normals[point]);
        mesh.cells.push_back(points.cells[point]);
        if (cloud.hasTexture()) {
          int const cell = static_cast<int>(points.cells[point]);
          mesh.colors.push_back(cloud.texture()(cell / cloud.points().cols, cell % cloud.points().cols));
        }
      }
      corner = vertexOf[point];
    }
  }
  return mesh;
}

} // namespace vorn::mv
