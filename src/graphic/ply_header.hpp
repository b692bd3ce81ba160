// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "graphic/file_reader.hpp"

namespace vorn::graphic {

enum class PlyEncoding { Ascii, LittleEndian, BigEndian };

enum class PlyType { Int8, UInt8, Int16, UInt16, Int32, UInt32, Float32, Float64 };

/// Bytes of one value.
std::size_t sizeOf(PlyType type);
/// True for all but the floating point types.
bool isInteger(PlyType type);

/// What one row of an element holds under one name: a value, or a list of values behind their number.
struct PlyProperty {
  std::string name;
  PlyType type;
  std::optional<PlyType> countType; ///< of a list

  bool isList() const { return countType.has_value(); }
};

struct PlyElement {
  std::string name;
  std::uint64_t count;
  std::vector<PlyProperty> properties;

  bool hasList() const;
  /// Bytes of a binary row, where there is no list.
  std::size_t rowSize() const;
};

struct PlyHeader {
  PlyEncoding encoding;
  std::vector<PlyElement> elements;
};

/// Reads the header up to and including "end_header", and checks that the rest of the file can hold what the
/// header promises.
PlyHeader readPlyHeader(FileReader& file);

} // namespace vorn::graphic
