// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/surface/sample_mesh.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "core/error.hpp"
#include "surface/mesh_checks.hpp"

namespace vorn::mv {

namespace {

using Corners = std::array<cv::Vec3d, 3>;

Corners cornersOf(SurfaceMesh const& mesh, cv::Vec3i const& triangle) {
  Corners corners;
  for (int i = 0; i < 3; ++i) {
    corners[static_cast<std::size_t>(i)] = mesh.vertices[static_cast<std::size_t>(triangle[i])];
    if (!std::isfinite(cv::norm(corners[static_cast<std::size_t>(i)]))) {
      throw error("Vertex " + std::to_string(triangle[i]) + " is not finite", "sampleMesh");
    }
  }
  return corners;
}

/// Both halves of a triangle on either side of its longest edge's middle; nothing to halve where that edge is
/// no longer than asked.
bool halve(Corners const& whole, double longest, Corners& one, Corners& other) {
  double const edges[] = {cv::norm(whole[1] - whole[0]), cv::norm(whole[2] - whole[1]),
                          cv::norm(whole[0] - whole[2])};
  auto const a = static_cast<std::size_t>(std::max_element(edges, edges + 3) - edges);
  if (!(edges[a] > longest)) {
    return false;
  }
  std::size_t const b = (a + 1) % 3;
  cv::Vec3d const middle = 0.5 * (whole[a] + whole[b]);
  one = other = whole;
  one[b] = middle;
  other[a] = middle;
  return true;
}

} // namespace

PointCloud sampleMesh(SurfaceMesh const& mesh, double longestEdge) {
  if (!(longestEdge > 0.0)) {
    std::ostringstream message;
    message << "longestEdge is " << longestEdge << ", but must be above 0";
    throw error(message.str(), "sampleMesh");
  }
  checkTriangles(mesh, "sampleMesh");
  constexpr std::size_t most = 100'000'000;
  std::vector<cv::Vec3f> points;
  std::vector<cv::Vec3f> normals;
  std::vector<Corners> left;
  for (cv::Vec3i const& triangle : mesh.triangles) {
    left.assign(1, cornersOf(mesh, triangle));
    cv::Vec3d const across = (left[0][1] - left[0][0]).cross(left[0][2] - left[0][0]);
    double const length = cv::norm(across);
    if (!(length > 0.0)) {
      continue;
    }
    cv::Vec3f const normal = across * (1.0 / length);
    while (!left.empty()) {
      Corners const piece = left.back();
      left.pop_back();
      Corners one;
      Corners other;
      if (halve(piece, longestEdge, one, other)) {
        left.push_back(other);
        left.push_back(one);
        continue;
      }
      if (points.size() == most) {
        std::ostringstream message;
        message << "Pieces of edges up to " << longestEdge << " would be more than " << most << " points";
        throw error(message.str(), "sampleMesh");
      }
      points.emplace_back((piece[0] + piece[1] + piece[2]) * (1.0 / 3.0));
      normals.push_back(normal);
    }
  }
  if (points.empty()) {
    throw error("The mesh has no triangle with an area", "sampleMesh");
  }
  constexpr bool isCopied = true;
  return PointCloud(cv::Mat_<cv::Vec3f>(points, isCopied), false, cv::Mat_<cv::Vec3f>(normals, isCopied));
}

} // namespace vorn::mv
