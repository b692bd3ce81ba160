// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <vorn/core/export.hpp>
#include <vorn/graphic/graphic_object.hpp>

namespace vorn::graphic {

/// Reads and writes PCD files, version 0.7 (R. B. Rusu and S. Cousins, "3D is here: Point Cloud Library",
/// ICRA 2011): points and nothing else.
///
/// Reading takes ascii, binary and binary_compressed data, fields of any type but 8-byte integers and in any
/// order. Of a point it takes
/// - `x`, `y`, `z`, which must be there, and `normal_x`, `normal_y`, `normal_z` (or `nx` ...);
/// - `rgb` or `rgba`, packed into 4 bytes as a float or a whole number, or `r`, `g`, `b` (`red` ...) in
///   0..255 or 0..1 as those of an `XYZFile`;
/// - all other fields, and what there is of incomplete normals and colours, as the object's fields in single
///   precision, those of several numbers as `NAME_0`, `NAME_1` ...; those called `_` are left out.
/// The points of several rows come row after row; those without coordinates, NaN, stay. The viewpoint is not
/// used, which a message says where it is not the origin (`System::message`). Double coordinates far from
/// zero are kept relative to an offset, as `PLYFile` keeps them.
class VORN_API PCDFile {
public:
  /// How values are stored. Binary files hold the exact bits of every value, ascii files the fewest digits
  /// that read back as the same value.
  enum class Format { Binary, Ascii };

  PCDFile() = default;
  /// @param format what `write` writes; `read` takes all
  explicit PCDFile(Format format) : format_(format) {}

  /// The content of the file at `path`. Working memory: 24 bytes a point; for compressed data that of the
  /// content in addition.
  /// @throws Exception that names the file, the line or byte and the reason, when the file cannot be opened,
  ///         is not PCD, is damaged, or holds less than its header promises
  GraphicObject read(std::string const& path) const;

  /// Writes the points of `object` to `path` as one row, colours as `rgb`, or `rgba` when some colour is not
  /// opaque, coordinates as doubles when they have an offset, fields under their names (with `scalar_` before
  /// those that mean something else, and underscores for blanks and control characters). The format has no
  /// place for triangles. An existing file is replaced when the new one is complete. Working memory: none
  /// that grows with the object.
  /// @throws Exception when the object's arrays do not fit each other, a field has no name or that of another
  ///         when blanks are replaced, or the file cannot be written
  void write(std::string const& path, GraphicObject const& object) const;

private:
  Format format_ = Format::Binary;
};

} // namespace vorn::graphic
