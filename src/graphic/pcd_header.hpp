// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "graphic/file_reader.hpp"
#include "graphic/ply_header.hpp"

namespace vorn::graphic {

enum class PcdData { Ascii, Binary, Compressed };

/// One number a point; fields of several are columns of their own.
struct PcdColumn {
  std::string name;
  PlyType type;
  std::size_t count = 1;  ///< how many numbers its field has
  std::size_t number = 0; ///< which of them it is
};

struct PcdHeader {
  std::vector<PcdColumn> columns;
  std::uint64_t points = 0;
  PcdData data = PcdData::Ascii;

  /// Bytes of a point.
  std::size_t rowSize() const;
};

/// Reads the header up to and including the line "DATA", and checks that the rest of the file can hold the
/// points.
PcdHeader readPcdHeader(FileReader& file);

} // namespace vorn::graphic
