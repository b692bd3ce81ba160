// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <vorn/core/export.hpp>
#include <vorn/graphic/graphic_object.hpp>

namespace vorn::graphic {

/// Reads and writes PLY files (Turk: The PLY Polygon File Format, 1994).
///
/// Reading takes the ascii and both binary encodings, line ends of any system, properties in any order and of
/// any scalar type, comments, and elements besides the vertices, which are passed over. Of a vertex it takes
/// - `x`, `y`, `z`, which must be there, and `nx`, `ny`, `nz` (or `normal_x` ...);
/// - `red`, `green`, `blue` and `alpha` (also with the prefix `diffuse_`, or as `r`, `g`, `b`, `a`): whole
///   numbers in 0..255, larger and smaller ones clamped, of type `ushort` in 0..65535, but in 0..255 where
///   more of the file's are from 1 to 255 than above, or floating point numbers in 0..1, but in 0..255 where
///   some are above 2 and not ten times as many between 0 and 1; what is assumed other than usual, a message
///   says
///   (`System::message`); alpha is 255 when it is missing.
/// - every other property that is a number, and what there is of normals and colours that are not complete,
///   as one of the object's fields, in single precision. A field's name is the property's, without the prefix
///   `scalar_` that marks it in files of this and of other programs.
/// Lists of a vertex are passed over. Coordinates of types finer than float that floats would move by more
/// than a hundred-thousandth of the cloud's extent are kept relative to an offset of few digits, `offset()`;
/// strays, and zeros where a scanner saw nothing, have no say in it.
/// Polygons of the element `face` become triangle fans, or where they are not convex the triangles that
/// cutting ears off leaves (one that crosses itself stays a fan), `tristrips` become triangles; a polygon of
/// fewer than three corners has no area and is passed over. Values beyond the range of `float` become
/// infinite.
class VORN_API PLYFile {
public:
  /// How values are stored. Binary files hold the exact bits of every value, ascii files the fewest digits
  /// that read back as the same value.
  enum class Format { BinaryLittleEndian, BinaryBigEndian, Ascii };

  PLYFile() = default;
  /// @param format what `write` writes; `read` takes all of them
  explicit PLYFile(Format format) : format_(format) {}

  /// The content of the file at `path`. Working memory: none that grows with the file; 24 bytes a vertex
  /// where coordinates are of a type finer than float, 16 where colours are of floating point or 16 bits.
  /// @throws Exception that names the file, the line or byte and the reason, when the file cannot be opened,
  ///         is not PLY, is damaged, or holds less than its header promises
  GraphicObject read(std::string const& path) const;

  /// Writes all of `object` to `path`; alpha is left out when every colour is opaque. Fields become the float
  /// properties `scalar_NAME`, with underscores for blanks and control characters in their names. Coordinates
  /// with an offset are written as doubles. An existing file is replaced when the new one is complete.
  /// Working memory: none that grows with the object.
  /// @throws Exception when the object's arrays do not fit each other, a field has no name or that of another
  ///         when blanks are replaced, or the file cannot be written
  void write(std::string const& path, GraphicObject const& object) const;

private:
  Format format_ = Format::BinaryLittleEndian;
};

} // namespace vorn::graphic
