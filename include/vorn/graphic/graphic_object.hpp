// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <opencv2/core/matx.hpp>
#include <string>
#include <vector>

#include <vorn/core/export.hpp>

/// Geometry as it is kept in files: vertices with what belongs to them, and triangles.
namespace vorn::graphic {

/// A point cloud or a triangle mesh: the content of a PLY, OBJ or STL file.
///
/// `normals` and `colors` are either empty or as long as `vertices`, every one of `fields` is as long as
/// `vertices`; `triangles` hold indices into `vertices`. The arrays may be filled in any order, so this is
/// not checked here but by what uses the object as a whole: writing an object that breaks it is an Exception.
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

  /// Numbers that come with the vertices (uncertainty, modulation, deviation from a nominal shape ...), by
  /// name, one a vertex. PLY, PCD and XYZ files hold them; OBJ and STL have no place for them.
  std::map<std::string, std::vector<float>> const& fields() const noexcept { return fields_; }
  /// The same, to change.
  std::map<std::string, std::vector<float>>& fields() noexcept { return fields_; }

  /// Where the vertices' zero lies: a vertex's place is `offset() + vertex`. Zero, unless they were read from
  /// a file of double coordinates so far from zero that floats would lose their place. Files are
  /// written with the sum, exactly but for STL, which holds floats only.
  cv::Vec3d const& offset() const noexcept { return offset_; }
  /// The same, to change.
  cv::Vec3d& offset() noexcept { return offset_; }

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
  std::map<std::string, std::vector<float>> fields_;
  cv::Vec3d offset_;
};

} // namespace vorn::graphic
