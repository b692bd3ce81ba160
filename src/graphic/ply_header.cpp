// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/ply_header.hpp"

#include <algorithm>
#include <array>
#include <string_view>

#include "graphic/line_fields.hpp"

namespace vorn::graphic {
namespace {

PlyType typeNamed(std::string_view name, FileReader const& file) {
  struct TypeName {
    std::string_view name;
    PlyType type;
  };
  constexpr std::array<TypeName, 16> names{{{"char", PlyType::Int8},
                                            {"int8", PlyType::Int8},
                                            {"uchar", PlyType::UInt8},
                                            {"uint8", PlyType::UInt8},
                                            {"short", PlyType::Int16},
                                            {"int16", PlyType::Int16},
                                            {"ushort", PlyType::UInt16},
                                            {"uint16", PlyType::UInt16},
                                            {"int", PlyType::Int32},
                                            {"int32", PlyType::Int32},
                                            {"uint", PlyType::UInt32},
                                            {"uint32", PlyType::UInt32},
                                            {"float", PlyType::Float32},
                                            {"float32", PlyType::Float32},
                                            {"double", PlyType::Float64},
                                            {"float64", PlyType::Float64}}};
  for (TypeName const& known : names) {
    if (known.name == name) {
      return known.type;
    }
  }
  file.failAtLine("unknown property type " + quoted(name));
}

PlyEncoding readFormat(LineFields& fields, FileReader const& file) {
  std::string_view const encoding = fields.word();
  std::string_view const version = fields.word();
  if (version != "1.0") {
    file.failAtLine("unknown PLY version " + quoted(version));
  }
  if (encoding == "ascii") {
    return PlyEncoding::Ascii;
  }
  if (encoding == "binary_little_endian") {
    return PlyEncoding::LittleEndian;
  }
  if (encoding == "binary_big_endian") {
    return PlyEncoding::BigEndian;
  }
  file.failAtLine("unknown PLY format " + quoted(encoding));
}

PlyElement readElement(LineFields& fields, FileReader const& file) {
  std::string const name(fields.word());
  std::int64_t count = 0;
  if (!fields.integer(count)) {
    file.failAtLine("element " + quoted(name) + " has no valid count");
  }
  if (count < 0) {
    file.failAtLine("element " + quoted(name) + " has the negative count " + std::to_string(count));
  }
  return {name, static_cast<std::uint64_t>(count), {}};
}

PlyProperty readProperty(LineFields& fields, FileReader const& file) {
  PlyProperty property = {};
  std::string_view type = fields.word();
  if (type == "list") {
    property.countType = typeNamed(fields.word(), file);
    if (!isInteger(*property.countType)) {
      file.failAtLine("the length of a list is no integer");
    }
    type = fields.word();
  }
  property.type = typeNamed(type, file);
  property.name = fields.word();
  if (property.name.empty()) {
    file.failAtLine("a property without a name");
  }
  return property;
}

template <class Named>
void assertNewName(std::vector<Named> const& existing, std::string const& name, FileReader const& file) {
  if (std::any_of(existing.begin(), existing.end(), [&](Named const& known) { return known.name == name; })) {
    file.failAtLine(quoted(name) + " is declared twice");
  }
}

/// The fewest bytes that a row of the element takes.
std::uint64_t leastRowSize(PlyElement const& element, PlyEncoding encoding) {
  std::uint64_t size = 0;
  for (PlyProperty const& property : element.properties) {
    // As a text each value takes a digit and a blank or line end; an empty list is the digit 0.
    size += encoding == PlyEncoding::Ascii ? 2 : sizeOf(property.countType.value_or(property.type));
  }
  return size;
}

void assertFits(PlyHeader const& header, FileReader const& file) {
  // The last line of an ascii file may lack its end.
  std::uint64_t left = file.remaining() + (header.encoding == PlyEncoding::Ascii ? 1 : 0);
  for (PlyElement const& element : header.elements) {
    std::uint64_t const rowSize = leastRowSize(element, header.encoding);
    if (rowSize == 0) {
      continue;
    }
    if (element.count > left / rowSize) {
      file.fail("the header promises " + std::to_string(element.count) + " rows of " + quoted(element.name) +
                " of at least " + std::to_string(rowSize) + " bytes, but only " + std::to_string(left) +
                " bytes are left for them");
    }
    left -= element.count * rowSize;
  }
}

} // namespace

std::size_t sizeOf(PlyType type) {
  constexpr std::array<std::size_t, 8> sizes = {1, 1, 2, 2, 4, 4, 4, 8};
  return sizes[static_cast<std::size_t>(type)];
}

bool isInteger(PlyType type) {
  return type < PlyType::Float32;
}

bool PlyElement::hasList() const {
  return std::any_of(properties.begin(), properties.end(),
                     [](PlyProperty const& each) { return each.isList(); });
}

std::size_t PlyElement::rowSize() const {
  std::size_t size = 0;
  for (PlyProperty const& property : properties) {
    size += sizeOf(property.type);
  }
  return size;
}

PlyHeader readPlyHeader(FileReader& file) {
  std::string_view line;
  if (!file.nextLine(line) || LineFields(line).rest() != "ply") {
    file.fail("it is no PLY file: its first line is not \"ply\"");
  }
  PlyHeader header = {};
  bool hasFormat = false;
  while (file.nextLine(line)) {
    LineFields fields(line);
    std::string_view const keyword = fields.word();
    if (keyword.empty() || keyword == "comment" || keyword == "obj_info") {
      continue;
    }
    if (keyword == "end_header") {
      if (!hasFormat) {
        file.failAtLine("the header names no format");
      }
      assertFits(header, file);
      return header;
    }
    if (keyword == "format") {
      header.encoding = readFormat(fields, file);
      hasFormat = true;
    } else if (keyword == "element") {
      PlyElement element = readElement(fields, file);
      assertNewName(header.elements, element.name, file);
      header.elements.push_back(std::move(element));
    } else if (keyword == "property") {
      if (header.elements.empty()) {
        file.failAtLine("a property before the first element");
      }
      PlyProperty property = readProperty(fields, file);
      assertNewName(header.elements.back().properties, property.name, file);
      header.elements.back().properties.push_back(std::move(property));
    } else {
      file.failAtLine("unknown keyword " + quoted(keyword) + " in the header");
    }
    if (!fields.atEnd()) {
      file.failAtLine("unexpected " + quoted(fields.rest()));
    }
  }
  file.fail("the header does not end");
}

} // namespace vorn::graphic
