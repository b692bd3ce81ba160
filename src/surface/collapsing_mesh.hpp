// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <opencv2/core/matx.hpp>
#include <unordered_map>
#include <vector>
#include <vorn/mv/surface/mesh.hpp>

namespace vorn::mv {

/// A mesh whose vertices are drawn onto neighbours as long as it stays near what it was.
class CollapsingMesh {
public:
  /// @param mesh without faulty edges
  CollapsingMesh(SurfaceMesh const& mesh, double maxError);

  std::size_t triangleCount() const { return triangleCount_; }
  std::size_t trianglesAround(int vertex) const { return around_[static_cast<std::size_t>(vertex)].size(); }
  /// The vertices that share a triangle with one, rising.
  std::vector<int> neighbours(int vertex) const;
  /// How much the surface moves when `from` is drawn onto `to`: a squared distance times an area.
  double cost(int from, int to) const;
  /// Draws `from` onto `to`, its neighbour, unless that moves the surface too far, folds it or changes how it
  /// hangs together.
  bool collapse(int from, int to);
  /// The neighbours of `to` in the triangles that the last collapse changed, rising.
  std::vector<int> const& touched() const { return touched_; }
  /// The vertices that are left, with what the mesh given knows of them.
  SurfaceMesh finish() const;

private:
  using Quadric = cv::Matx44d;

  /// What a collapse changes.
  struct Change {
    std::vector<int> kept;      ///< triangles that get a new corner
    std::vector<int> gone;      ///< triangles of both vertices
    std::vector<int> displaced; ///< vertices drawn away that lose their triangle
    std::vector<int> places;    ///< the triangle of `kept`, or -1 - neighbour, that each comes to lie at
    std::vector<int> rim;       ///< on a rim: what its new edge stands for
    int before = -1;            ///< on a rim: the vertex before
    int after = -1;             ///< on a rim: the vertex behind
  };

  cv::Vec3d at(int vertex) const { return cv::Vec3d(mesh_.vertices[static_cast<std::size_t>(vertex)]); }
  cv::Vec3i const& corners(int triangle) const { return triangles_[static_cast<std::size_t>(triangle)]; }
  cv::Vec3d crossOf(cv::Vec3i const& corners) const;
  void findRims();
  /// The triangles that two vertices share, rising.
  std::vector<int> shared(int a, int b) const;
  bool keepsTopology(int from, int to) const;
  bool keepsSide(int triangle, int from, int to) const;
  bool keepsSides(int from, int to, Change& change) const;
  bool keepsRim(int from, int to, Change& change) const;
  bool keepsNear(int from, int to, Change& change) const;
  void apply(int from, int to, Change const& change);

  SurfaceMesh const& mesh_;
  double squaredError_;
  std::size_t triangleCount_;
  std::vector<cv::Vec3i> triangles_;     ///< (-1, -1, -1) where one is gone
  std::vector<std::vector<int>> around_; ///< the triangles of a vertex, rising
  std::vector<Quadric> quadrics_;
  std::vector<int> touched_;
  std::vector<std::vector<int>> drawn_; ///< the vertices drawn away next to a triangle
  std::unordered_map<int, int> rimNext_;
  std::unordered_map<int, int> rimBefore_;
  std::unordered_map<int, std::vector<int>> rimDrawn_; ///< drawn away from the rim's edge behind a vertex
};

} // namespace vorn::mv
