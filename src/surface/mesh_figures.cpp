// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numeric>
#include <string>
#include <tuple>
#include <utility>
#include <vector>
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
/// comes to a vertex once more, what lies between is a loop of its own: no loop passes a vertex twice. Where
/// triangles face opposite sides, no edge starts where one ends: then it goes back along one that ends there.
class BoundaryLoops {
public:
  BoundaryLoops(std::vector<cv::Vec2i> const& boundary, std::size_t vertexCount)
      : isTaken_(boundary.size()), nextEnd_(vertexCount + 1), placeOf_(vertexCount, none) {
    for (std::size_t edge = 0; edge < boundary.size(); ++edge) {
      ends_.push_back({boundary[edge][0], false, boundary[edge][1], edge});
      ends_.push_back({boundary[edge][1], true, boundary[edge][0], edge});
    }
    std::sort(ends_.begin(), ends_.end(), [](End const& a, End const& b) {
      return std::tie(a.vertex, a.isBackward, a.other) < std::tie(b.vertex, b.isBackward, b.other);
    });
    for (End const& end : ends_) {
      ++nextEnd_[static_cast<std::size_t>(end.vertex) + 1];
    }
    std::partial_sum(nextEnd_.begin(), nextEnd_.end(), nextEnd_.begin());
    lastEnd_.assign(nextEnd_.begin() + 1, nextEnd_.end());
  }

  std::vector<std::vector<int>> take() {
    // Chains that do not close begin at a vertex with an odd number of edges.
    for (bool const fromOdd : {true, false}) {
      for (std::size_t vertex = 0; vertex < lastEnd_.size(); ++vertex) {
        std::size_t const first = vertex == 0 ? 0 : lastEnd_[vertex - 1];
        bool const isOdd = (lastEnd_[vertex] - first) % 2 == 1;
        while (isOdd == fromOdd && follow(static_cast<int>(vertex))) {
        }
      }
    }
    return std::move(loops_);
  }

private:
  static constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

  struct End {
    int vertex;
    bool isBackward; ///< the edge ends here
    int other;
    std::size_t edge;
  };

  /// An edge at a vertex that was not taken yet. Those that were are passed over once and for all.
  End const* freeEndAt(std::size_t vertex) {
    std::size_t& next = nextEnd_[vertex];
    while (next < lastEnd_[vertex] && isTaken_[ends_[next].edge]) {
      ++next;
    }
    return next < lastEnd_[vertex] ? &ends_[next] : nullptr;
  }

  void cutFrom(std::size_t place) {
    loops_.emplace_back(path_.begin() + static_cast<std::ptrdiff_t>(place), path_.end());
    for (int const vertex : loops_.back()) {
      placeOf_[static_cast<std::size_t>(vertex)] = none;
    }
    path_.resize(place);
  }

  /// Takes edges from a vertex on until none goes on or it is back with nothing left but loops.
  /// @return whether there was one
  bool follow(int start) {
    bool hasEdge = false;
    for (int vertex = start;;) {
      auto const index = static_cast<std::size_t>(vertex);
      if (placeOf_[index] != none) {
        cutFrom(placeOf_[index]);
      }
      if (hasEdge && path_.empty()) {
        return true;
      }
      End const* const end = freeEndAt(index);
      if (end != nullptr || hasEdge) {
        placeOf_[index] = path_.size();
        path_.push_back(vertex);
      }
      if (end == nullptr) {
        break;
      }
      hasEdge = true;
      isTaken_[end->edge] = true;
      vertex = end->other;
    }
    if (!path_.empty()) {
      cutFrom(0);
    }
    return hasEdge;
  }

  std::vector<End> ends_; ///< by their vertices, edges that start there first
  std::vector<bool> isTaken_;
  std::vector<std::size_t> nextEnd_; ///< of each vertex, the first that may be free
  std::vector<std::size_t> lastEnd_; ///< of each vertex, one behind its last
  std::vector<std::size_t> placeOf_; ///< of each vertex in the path
  std::vector<int> path_;
  std::vector<std::vector<int>> loops_;
};

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
  figures.boundaries = BoundaryLoops(boundary, mesh.vertices.size()).take();
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
