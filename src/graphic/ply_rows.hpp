// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "graphic/file_reader.hpp"
#include "graphic/line_fields.hpp"
#include "graphic/ply_header.hpp"

namespace vorn::graphic {

/// Fetches the next `size` bytes of a row.
inline char const* fetchValues(FileReader& file, PlyElement const& element, std::uint64_t size) {
  if (size > file.remaining() || file.fetch(static_cast<std::size_t>(size)) < size) {
    file.failAtByte("the file ends within the rows of " + quoted(element.name));
  }
  return file.data();
}

/// Takes the length of a binary list, and checks that the file can hold the list.
std::uint64_t takeListLength(FileReader& file, PlyElement const& element, PlyProperty const& property,
                             bool swapped);
/// Takes the length of a list in a text row.
std::uint64_t takeListLength(FileReader const& file, LineFields& line, PlyProperty const& property);

/// Passes over the value or list of one property.
void skipProperty(FileReader& file, PlyElement const& element, PlyProperty const& property, bool swapped);
void skipProperty(FileReader const& file, LineFields& line, PlyProperty const& property);
/// Passes over all rows of an element.
void skipElement(FileReader& file, PlyElement const& element, PlyEncoding encoding);

[[noreturn]] void failAtValue(FileReader const& file, LineFields& line, PlyProperty const& property);

/// Takes the next row of an ascii file, which is one line: `takeValues(fields)` takes its values.
template <class TakeValues>
void takeTextRow(FileReader& file, PlyElement const& element, TakeValues const& takeValues) {
  std::string_view line;
  do {
    if (!file.nextLine(line)) {
      file.fail("the file ends within the rows of " + quoted(element.name));
    }
  } while (LineFields(line).atEnd());
  LineFields fields(line);
  takeValues(fields);
  if (!fields.atEnd()) {
    file.failAtLine("unexpected " + quoted(fields.rest()) + " behind the values of a row of " +
                    quoted(element.name));
  }
}

} // namespace vorn::graphic
