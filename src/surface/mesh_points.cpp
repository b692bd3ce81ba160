// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "surface/mesh_points.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
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

/// Points far apart for their extent, each with some points near it, as lists of cells of the cloud: an
/// octree over a few points far away resolves none of the others. Most clouds are one such group.
std::vector<std::vector<unsigned>> groupsOf(PointCloud const& cloud) {
  constexpr float mostReach = 100.0F; // in distances of the quartiles
  std::vector<unsigned> left;
  int const columns = cloud.points().cols;
  auto const at = [&](unsigned cell) -> cv::Vec3f const& {
    return cloud.points()(static_cast<int>(cell) / columns, static_cast<int>(cell) % columns);
  };
  for (unsigned cell = 0; cell < cloud.pointCount(); ++cell) {
    if (cloud.state()(static_cast<int>(cell) / columns, static_cast<int>(cell) % columns) == 0 &&
        isFinite(at(cell).val)) {
      left.push_back(cell);
    }
  }
  std::vector<std::vector<unsigned>> groups;
  std::vector<float> values;
  while (!left.empty()) {
    cv::Vec3f low;
    cv::Vec3f high;
    float reach = 0.0F;
    for (int axis = 0; axis < 3; ++axis) {
      values.clear();
      std::transform(left.begin(), left.end(), std::back_inserter(values),
                     [&](unsigned cell) { return at(cell)[axis]; });
      auto const quartile = [&](std::size_t part) {
        auto const nth = values.begin() + static_cast<std::ptrdiff_t>((values.size() - 1) * part / 4);
        std::nth_element(values.begin(), nth, values.end());
        return *nth;
      };
      low[axis] = quartile(1);
      high[axis] = quartile(3);
      reach = std::max(reach, mostReach * (high[axis] - low[axis]));
    }
    auto const isNear = [&](unsigned cell) {
      bool near = true;
      for (int axis = 0; axis < 3; ++axis) {
        near = near && at(cell)[axis] >= low[axis] - reach && at(cell)[axis] <= high[axis] + reach;
      }
      return near;
    };
    auto const far = std::stable_partition(left.begin(), left.end(), isNear);
    // Where many share a place, or most lie on two, there is nothing to tell near and far by.
    auto const end = reach > 0.0F && far != left.begin() ? far : left.end();
    groups.emplace_back(left.begin(), end);
    left.erase(left.begin(), end);
  }
  return groups;
}

/// The points of a group alone.
PointCloud partOf(PointCloud const& cloud, std::vector<unsigned> const& cells) {
  int const columns = cloud.points().cols;
  cv::Mat_<cv::Vec3f> points(1, static_cast<int>(cells.size()));
  cv::Mat_<cv::Vec3f> normals(cloud.hasNormals() ? points.size() : cv::Size());
  for (int i = 0; i < points.cols; ++i) {
    cv::Point const cell(static_cast<int>(cells[static_cast<std::size_t>(i)]) % columns,
                         static_cast<int>(cells[static_cast<std::size_t>(i)]) / columns);
    points(i) = cloud.points()(cell);
    if (cloud.hasNormals()) {
      normals(i) = cloud.normals()(cell);
    }
  }
  return {points, false, normals};
}

/// The points that have a normal, given or found in their group.
/// @param spacing that of the largest group; 0: it is one place or none
/// @param pitch   that of an even grid as dense as it, no less
Oriented orientedPoints(PointCloud const& cloud, cv::Point3f const& viewpoint, float& spacing, float& pitch) {
  std::vector<std::vector<unsigned>> const groups = groupsOf(cloud);
  Oriented all;
  std::size_t largest = 0;
  spacing = 0.0F;
  for (std::vector<unsigned> const& cells : groups) {
    PointCloud part = groups.size() > 1 ? partOf(cloud, cells) : cloud;
    if (cells.size() > largest) {
      largest = cells.size();
      spacing = listSpacingOf(part);
      pitch = std::max(spacing, listPitchOf(part));
    }
    if (!cloud.hasNormals()) {
      NormalSettings normals;
      normals.viewpoint = viewpoint;
      part.calcNormals(normals);
    }
    Oriented const own = orientedPoints(part);
    all.points.insert(all.points.end(), own.points.begin(), own.points.end());
    all.normals.insert(all.normals.end(), own.normals.begin(), own.normals.end());
    for (unsigned const cell : own.cells) {
      all.cells.push_back(groups.size() > 1 ? cells[cell] : cell);
    }
  }
  return all;
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
  float spacing = 0.0F;
  float pitch = 0.0F;
  Oriented const all = orientedPoints(cloud, settings.viewpoint, spacing, pitch);
  if (!(spacing > 0.0F)) {
    throw error("The " + std::to_string(cloud.presentCount()) + " present points are one place or none",
                "meshOf");
  }
  constexpr float leastOverSpacing = 0.1F;
  constexpr float edgeOverPitch = 4.0F;
  Oriented points = spread(all, leastOverSpacing * spacing);
  float const maxEdge = settings.maxEdge > 0.0F ? settings.maxEdge : edgeOverPitch * pitch;
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
