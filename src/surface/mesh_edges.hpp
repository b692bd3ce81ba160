// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <vector>
#include <vorn/mv/surface/mesh.hpp>

namespace vorn::mv {

/// An edge of one triangle, from its lower to its higher vertex.
struct MeshEdge {
  int low;
  int high;
  bool isForward; ///< the triangle goes from low to high

  bool operator<(MeshEdge const& other) const {
    return low != other.low ? low < other.low : high < other.high;
  }
};

/// The edges of all triangles by their vertices, those of one edge in the triangles' order; none of triangles
/// that name a vertex twice, which join nothing.
inline std::vector<MeshEdge> sortedEdges(SurfaceMesh const& mesh) {
  std::vector<MeshEdge> edges;
  edges.reserve(3 * mesh.triangles.size());
  for (cv::Vec3i const& triangle : mesh.triangles) {
    if (triangle[0] == triangle[1] || triangle[1] == triangle[2] || triangle[2] == triangle[0]) {
      continue;
    }
    for (int i = 0; i < 3; ++i) {
      int const a = triangle[i];
      int const b = triangle[(i + 1) % 3];
      edges.push_back({std::min(a, b), std::max(a, b), a < b});
    }
  }
  std::stable_sort(edges.begin(), edges.end());
  return edges;
}

} // namespace vorn::mv
