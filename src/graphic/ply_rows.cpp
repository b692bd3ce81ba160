// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/ply_rows.hpp"

#include "graphic/ply_values.hpp"

namespace vorn::graphic {

std::uint64_t takeListLength(FileReader& file, PlyElement const& element, PlyProperty const& property,
                             bool swapped) {
  std::size_t const size = sizeOf(*property.countType);
  auto const length =
      static_cast<std::int64_t>(loadNumber(*property.countType, swapped, fetchValues(file, element, size)));
  if (length < 0) {
    file.failAtByte("the list " + quoted(property.name) + " has the negative length " +
                    std::to_string(length));
  }
  file.advance(size);
  if (static_cast<std::uint64_t>(length) > file.remaining() / sizeOf(property.type)) {
    file.failAtByte("the list " + quoted(property.name) + " of " + std::to_string(length) +
                    " values goes beyond the end of the file");
  }
  return static_cast<std::uint64_t>(length);
}

std::uint64_t takeListLength(FileReader const& file, LineFields& line, PlyProperty const& property) {
  std::int64_t length = 0;
  if (!line.integer(length)) {
    failAtValue(file, line, property);
  }
  if (length < 0) {
    file.failAtLine("the list " + quoted(property.name) + " has the negative length " +
                    std::to_string(length));
  }
  return static_cast<std::uint64_t>(length);
}

void skipProperty(FileReader& file, PlyElement const& element, PlyProperty const& property, bool swapped) {
  std::size_t const size = sizeOf(property.type);
  if (property.isList()) {
    file.skip(takeListLength(file, element, property, swapped) * size);
  } else {
    fetchValues(file, element, size);
    file.advance(size);
  }
}

void skipProperty(FileReader const& file, LineFields& line, PlyProperty const& property) {
  std::uint64_t const count = property.isList() ? takeListLength(file, line, property) : 1;
  for (std::uint64_t value = 0; value < count; ++value) {
    if (line.word().empty()) {
      failAtValue(file, line, property);
    }
  }
}

void skipElement(FileReader& file, PlyElement const& element, PlyEncoding encoding) {
  if (element.properties.empty()) {
    return; // its rows take no room, however many the header promises
  }
  if (encoding != PlyEncoding::Ascii && !element.hasList()) {
    file.skip(element.count * element.rowSize());
    return;
  }
  for (std::uint64_t row = 0; row < element.count; ++row) {
    if (encoding == PlyEncoding::Ascii) {
      takeTextRow(file, element, [&](LineFields& line) {
        for (PlyProperty const& property : element.properties) {
          skipProperty(file, line, property);
        }
      });
      continue;
    }
    for (PlyProperty const& property : element.properties) {
      skipProperty(file, element, property, isSwapped(encoding));
    }
  }
}

void failAtValue(FileReader const& file, LineFields& line, PlyProperty const& property) {
  std::string_view const found = line.word();
  file.failAtLine(found.empty() ? "the value of " + quoted(property.name) + " is missing"
                                : quoted(found) + " is no value of " + quoted(property.name));
}

} // namespace vorn::graphic
