// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <vorn/core/export.hpp>
#include <vorn/graphic/graphic_object.hpp>

namespace vorn::graphic {

/// Reads and writes STL files: triangles and nothing else.
///
/// A file whose size is what its binary triangle count asks for is binary, whatever its header says;
/// otherwise it is ascii when it begins with "solid".
///
/// The format repeats a vertex in each of its triangles. Reading joins corners with the same bits into one
/// vertex, numbered by first use, so a mesh comes back with its triangles connected. The facets' normals and
/// the attribute bytes are not kept: the former follow from the corners. Coordinates of ascii files far from
/// zero are kept relative to an offset, as `PLYFile` keeps doubles; such a file is read twice.
class VORN_API STLFile {
public:
  /// Binary files hold the exact bits of every coordinate, ascii files the fewest digits that read back as
  /// the same value.
  enum class Format { Binary, Ascii };

  STLFile() = default;
  /// @param format what `write` writes; `read` takes both
  explicit STLFile(Format format) : format_(format) {}

  /// The content of the file at `path`, without normals and colours. Working memory: up to one and three
  /// quarters times the result, to find vertices that are the same.
  /// @throws Exception that names the file, the line or byte and the reason, when the file cannot be opened,
  ///         is not STL, is damaged, or holds less than its header promises
  GraphicObject read(std::string const& path) const;

  /// Writes the triangles of `object` to `path`, each with the normal that its corners give (zero for a
  /// triangle without area). The format has no place for vertex normals, colours, fields and vertices that no
  /// triangle uses, nor for more than floats: where the object has an offset, its places are rounded. An
  /// existing file is replaced when the new one is complete. Working memory: none that grows with the object.
  /// @throws Exception when the object has vertices but no triangles, since all its points would be lost;
  ///         when its arrays do not fit each other; or when the file cannot be written
  void write(std::string const& path, GraphicObject const& object) const;

private:
  Format format_ = Format::Binary;
};

} // namespace vorn::graphic
