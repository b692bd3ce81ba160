// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <vorn/graphic/graphic_object.hpp>

#include "graphic/file_colors.hpp"
#include "graphic/file_reader.hpp"

namespace vorn::graphic {

/// What the numbers of a column of a table of points are.
struct VertexColumn {
  enum class Role {
    Skipped,
    Position,
    Normal,
    Color,  ///< 0..255
    Packed, ///< blue + 256 (green + 256 (red + 256 alpha)), alpha left out
    PackedWithAlpha,
    Field
  };
  Role role = Role::Skipped;
  std::size_t channel = 0; ///< x, y, z or red, green, blue
};

/// The meaning of columns by their names, in capitals or not: x y z; nx ny nz or normal_x ...; r g b or red
/// ...;
/// "_" is skipped, all others are fields, and so are incomplete normals and colours.
std::vector<VertexColumn> columnsNamed(std::vector<std::string> const& names);

/// Whether there are x, y and z.
bool hasPositions(std::vector<VertexColumn> const& columns);

/// The name for a field of an object in a table of points, marked where it would mean something else.
std::string columnNameOf(std::string const& fieldName);

/// Gathers an object from the rows of a table.
class VertexRows {
public:
  /// @param names the columns' names, of which fields take theirs
  VertexRows(std::vector<VertexColumn> columns, std::vector<std::string> const& names);

  /// Makes room, where the number of rows is known and was checked.
  void reserve(std::size_t count);
  /// Takes one number a column.
  void add(double const* values);
  /// The object of all rows, with an offset if it needs one. Says what was assumed of its colours.
  GraphicObject finish(FileReader const& file);

private:
  std::vector<VertexColumn> columns_;
  bool hasNormals_ = false;
  bool hasColors_ = false;
  bool hasColorColumns_ = false;
  ColorScales scales_;                ///< of colours in columns, usually 0..255
  std::vector<cv::Vec4b> unitColors_; ///< as if they were of 0..1
  GraphicObject object_;
  std::vector<cv::Vec3d> places_;
  std::vector<std::vector<float>*> fields_;
};

} // namespace vorn::graphic
