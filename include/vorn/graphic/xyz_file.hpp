// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <vorn/core/export.hpp>
#include <vorn/graphic/graphic_object.hpp>

namespace vorn::graphic {

/// Reads and writes points as a table in text, a line each.
///
/// Reading takes numbers with blanks, tabs, commas or semicolons between them, as many in each line. Nothing
/// between two commas or semicolons, or before the first, is a NaN; behind the last it is one only where a
/// column is missing, since some programs end every line so. A line with a comma between two digits and other
/// separators too is an error: its commas may be decimal ones. Lines that begin with `#` or `//` are
/// comments; the last one before the points that has x, y and z among as many words as they have numbers, or
/// a first line of such words without a mark, names the columns: `nx`, `ny`, `nz` are normals, `red`,
/// `green`, `blue` (or `r`, `g`, `b`) colours in 0..255, or in 0..1 where some are between 0 and 1 and more
/// than ten times as many as are above 2, which is said (`System::message`), all others fields. Names with
/// commas or semicolons between them may hold blanks, and stand in quotes; units in brackets may stand behind
/// coordinates. That a first line without a mark names another number of columns is an
/// error. Without names the first three columns are the coordinates, and a further three are colours when
/// they are whole numbers in 0..255, above 1 somewhere, and normals when they are of length 1 to a hundredth,
/// judged by the first 100 points; all others become the fields `column_4` and so on. What was concluded
/// without names is said
/// (`System::message`). A line of one whole number before the first point is taken for the number of points
/// and passed over, and so are a byte order mark and lines of separators alone. Coordinates far from zero are
/// kept relative to an offset, as `PLYFile` keeps doubles.
class VORN_API XYZFile {
public:
  /// The content of the file at `path`. Working memory: 24 bytes a point, 28 with
  /// colours.
  /// @throws Exception that names the file, the line and the reason, when the file cannot be opened or a line
  /// is
  ///         no point
  GraphicObject read(std::string const& path) const;

  /// Writes the points of `object` to `path`: a line that names the columns, and every value with the fewest
  /// digits that read back as the same value. Alpha and triangles have no place. An existing file is replaced
  /// when the new one is complete. Working memory: none that grows with the object.
  /// @throws Exception when the object's arrays do not fit each other, a field has no name or that of another
  ///         when blanks are replaced, or the file cannot be written
  void write(std::string const& path, GraphicObject const& object) const;
};

} // namespace vorn::graphic
