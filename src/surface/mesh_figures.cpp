// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <string>
#include <vorn/mv/surface/mesh.hpp>

#include "surface/mesh_checks.hpp"
#include "surface/mesh_edges.hpp"

namespace vorn::mv {

namespace {

cv::Vec3d vertexAt(SurfaceMesh const& mesh, int index) {
  return cv::Vec3d(mesh.vertices[static_cast<std::size_t>(index)]);
}

/// Twice the area of a triangle along its normal.
cv::Vec3d crossOf(SurfaceMesh const& mesh, cv::Vec3i const& triangle) {
  cv::Vec3d const origin = vertexAt(mesh, triangle[0]);
  return (vertexAt(mesh, triangle[1]) - origin).cross(vertexAt(mesh, triangle[2]) - origin);
}

/// Follows the edges that only one triangle has, each from its start to its end, into closed loops. Where one
/// comes to a vertex once more, what lies between is a loop of its own: no loop passes a vertex twice.
std::vector<std::vector<int>> loopsOf(std::vector<cv::Vec2i> boundary, std::size_t vertexCount) {
  std::sort(boundary.begin(), boundary.end(),
            [](cv::Vec2i const& a, cv::Vec2i const& b) { return a[0] != b[0] ? a[0] < b[0] : a[1] < b[1]; });
  std::vector<bool> isTaken(boundary.size());
  std::vector<int> placeOf(vertexCount, -1); // in the path
  std::vector<std::vector<int>> loops;
  std::vector<int> path;
  auto const cutFrom = [&](int place) {
    loops.emplace_back(path.begin() + place, path.end());
    for (int const vertex : loops.back()) {
      placeOf[static_cast<std::size_t>(vertex)] = -1;
    }
    path.resize(static_cast<std::size_t>(place));
  };
  for (std::size_t first = 0; first < boundary.size(); ++first) {
    for (std::size_t edge = first; edge < boundary.size() && !isTaken[edge];) {
      isTaken[edge] = true;
      placeOf[static_cast<std::size_t>(boundary[edge][0])] = static_cast<int>(path.size());
      path.push_back(boundary[edge][0]);
      int const next = boundary[edge][1];
      int const passed = placeOf[static_cast<std::size_t>(next)];
      if (passed >= 0) {
        cutFrom(passed);
      }
      edge = static_cast<std::size_t>(
          std::lower_bound(boundary.begin(), boundary.end(), next,
                           [](cv::Vec2i const& a, int vertex) { return a[0] < vertex; }) -
          boundary.begin());
      // A vertex in two loops has two edges that start there.
      while (edge < boundary.size() && boundary[edge][0] == next && isTaken[edge]) {
        ++edge;
      }
      if (path.empty() || (edge < boundary.size() && boundary[edge][0] != next)) {
        break;
      }
    }
    if (!path.empty()) {
      cutFrom(0);
    }
  }
  return loops;
}

std::size_t countPieces(SurfaceMesh const& mesh) {
  std::vector<int> parents(mesh.vertices.size());
  std::iota(parents.begin(), parents.end(), 0);
  auto const rootOf = [&](int vertex) {
    while (parents[static_cast<std::size_t>(vertex)] != vertex) {
      int& parent = parents[static_cast<std::size_t>(vertex)];
      parent = parents[static_cast<std::size_t>(parent)];
      vertex = parent;
    }
    return vertex;
  };
  std::vector<bool> isUsed(mesh.vertices.size());
  for (cv::Vec3i const& triangle : mesh.triangles) {
    int const root = rootOf(triangle[0]);
    for (int const corner : triangle.val) {
      parents[static_cast<std::size_t>(rootOf(corner))] = root;
      isUsed[static_cast<std::size_t>(corner)] = true;
    }
  }
  std::size_t pieces = 0;
  for (std::size_t i = 0; i < parents.size(); ++i) {
    pieces += isUsed[i] && parents[i] == static_cast<int>(i) ? 1 : 0;
  }
  return pieces;
}

} // namespace

MeshFigures figuresOf(SurfaceMesh const& mesh) {
  checkTriangles(mesh, "figuresOf");
  MeshFigures figures;
  cv::Vec3d const origin = mesh.vertices.empty() ? cv::Vec3d() : vertexAt(mesh, 0);
  double sixVolumes = 0.0;
  for (cv::Vec3i const& triangle : mesh.triangles) {
    cv::Vec3d const cross = crossOf(mesh, triangle);
    double const area = std::sqrt(cross.dot(cross)) / 2.0;
    figures.area += area;
    figures.degenerateTriangles += area > 0.0 ? 0 : 1;
    sixVolumes += cross.dot(vertexAt(mesh, triangle[0]) - origin);
  }
  std::vector<MeshEdge> const edges = sortedEdges(mesh);
  std::vector<cv::Vec2i> boundary;
  for (std::size_t first = 0; first < edges.size();) {
    std::size_t end = first;
    while (end < edges.size() && !(edges[first] < edges[end])) {
      ++end;
    }
    MeshEdge const& edge = edges[first];
    if (end - first == 1) {
      // Against the triangle's way, so that the loop goes round the hole as the surface beyond would.
      boundary.emplace_back(edge.isForward ? edge.high : edge.low, edge.isForward ? edge.low : edge.high);
    } else if (end - first > 2 || edge.isForward == edges[first + 1].isForward) {
      ++figures.faultyEdges;
    }
    first = end;
  }
  bool const isClosed = boundary.empty() && figures.faultyEdges == 0 && !mesh.triangles.empty();
  figures.volume = isClosed ? sixVolumes / 6.0 : std::numeric_limits<double>::quiet_NaN();
  figures.boundaries = loopsOf(std::move(boundary), mesh.vertices.size());
  figures.pieces = countPieces(mesh);
  return figures;
}

std::vector<cv::Vec3f> vertexNormalsOf(SurfaceMesh const& mesh) {
  checkTriangles(mesh, "vertexNormalsOf");
  std::vector<cv::Vec3d> sums(mesh.vertices.size());
  for (cv::Vec3i const& triangle : mesh.triangles) {
    cv::Vec3d const cross = crossOf(mesh, triangle);
    double const length = std::sqrt(cross.dot(cross));
    if (!(length > 0.0)) {
      continue;
    }
    for (int i = 0; i < 3; ++i) {
      cv::Vec3d const corner = vertexAt(mesh, triangle[i]);
      cv::Vec3d const a = vertexAt(mesh, triangle[(i + 1) % 3]) - corner;
      cv::Vec3d const b = vertexAt(mesh, triangle[(i + 2) % 3]) - corner;
      double const angle = std::atan2(length, a.dot(b));
      sums[static_cast<std::size_t>(triangle[i])] += cross * (angle / length);
    }
  }
  std::vector<cv::Vec3f> normals(sums.size());
  std::transform(sums.begin(), sums.end(), normals.begin(), [](cv::Vec3d const& sum) {
    double const length = std::sqrt(sum.dot(sum));
    return length > 0.0 ? cv::Vec3f(sum * (1.0 / length)) : cv::Vec3f();
  });
  return normals;
}

} // namespace vorn::mv
