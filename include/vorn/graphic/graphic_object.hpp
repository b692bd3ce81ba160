// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/matx.hpp>
#include <vector>

#include <vorn/core/export.hpp>

/// Geometry as it is kept in files: vertices with what belongs to them, and triangles.
namespace vorn::graphic {

/// A point cloud or a triangle mesh: the content of a PLY, OBJ or STL file.
///
/// `normals` and `colors` are either empty or as long as `vertices`; `triangles` hold indices into
/// `vertices`. The arrays may be filled in any order, so this is not checked here but by what uses the object
/// as a whole: writing an object that breaks it is an Exception.
class VORN_API GraphicObject {
public:
  /// Positions, one a vertex; NaN and infinite coordinates are allowed.
  std::vector<cv::Vec3f> const& vertices() const noexcept { return vertices_; }
  /// The same, to change.
  std::vector<cv::Vec3f>& vertices() noexcept { return vertices_; }

  /// Normals, one a vertex, or none at all. They are taken as given: nothing makes them of unit length.
  std::vector<cv::Vec3f> const& normals() const noexcept { return normals_; }
  /// The same, to change.
  std::vector<cv::Vec3f>& normals() noexcept { return normals_; }

  /// Red, green, blue, alpha in 0..255, one a vertex, or none at all.
  std::vector<cv::Vec4b> const& colors() const noexcept { return colors_; }
  /// The same, to change.
  std::vector<cv::Vec4b>& colors() noexcept { return colors_; }

  /// Three vertex indices a triangle, counter-clockwise as seen from outside.
  std::vector<cv::Vec3i> const& triangles() const noexcept { return triangles_; }
  /// The same, to change.
  std::vector<cv::Vec3i>& triangles() noexcept { return triangles_; }

  /// Whether there are normals.
  bool hasNormals() const noexcept { return !normals_.empty(); }
  /// Whether there are colours.
  bool hasColors() const noexcept { return !colors_.empty(); }
  /// Whether it is a mesh.
  bool hasTriangles() const noexcept { return !triangles_.empty(); }
  /// True when there is no vertex.
  bool isEmpty() const noexcept { return vertices_.empty(); }

  /// Checks that the arrays fit each other.
  /// @throws Exception that names the array and the first index out of range, when they do not
  void assertValid() const;

private:
  std::vector<cv::Vec3f> vertices_;
  std::vector<cv::Vec3f> normals_;
  std::vector<cv::Vec4b> colors_;
  std::vector<cv::Vec3i> triangles_;
};

} // namespace vorn::graphic
