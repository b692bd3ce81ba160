// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <vorn/core/export.hpp>
#include <vorn/graphic/graphic_object.hpp>

namespace vorn::graphic {

/// Reads and writes Wavefront OBJ files.
///
/// Reading takes the statements `v`, `vn` and `f` and passes over all others. A vertex is `v x y z`, or
/// `v x y z w` (the weight is ignored), `v x y z r g b` or `v x y z r g b a` with colours in 0..1, or in
/// 0..255 where some components are above 2 and not ten times as many between 0 and 1, which a message says
/// (`System::message`); vertices without a colour are opaque white when others have one. Corners of
/// faces are `v`, `v/vt`, `v//vn` or `v/vt/vn`, counted from 1 or, negative, back from the last one read;
/// polygons become triangles as `PLYFile` cuts them. Coordinates far from zero are kept relative to an
/// offset, as `PLYFile` keeps doubles; such a file is read twice.
///
/// A vertex takes the normal that the first face corner at it names, and (0, 0, 0) when none does. If no face
/// names a normal and there are as many normals as vertices, they belong together in their order. A file
/// whose faces name normals that are not there is read without normals, which a message says
/// (`System::message`).
class VORN_API OBJFile {
public:
  /// The content of the file at `path`. Working memory: up to as much as the result takes.
  /// @throws Exception that names the file, the line and the reason, when the file cannot be opened, is not
  ///         OBJ, or is damaged
  GraphicObject read(std::string const& path) const;

  /// Writes all of `object` to `path`: every value with the fewest digits that read back as the same value,
  /// colours behind their vertex, alpha only when some colour is not opaque. The format has no place for
  /// fields. An existing file is replaced
  /// when the new one is complete. Working memory: none that grows with the object.
  /// @throws Exception when the object's arrays do not fit each other or the file cannot be written
  void write(std::string const& path, GraphicObject const& object) const;
};

} // namespace vorn::graphic
