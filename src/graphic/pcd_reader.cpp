// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/pcd_reader.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "graphic/line_fields.hpp"
#include "graphic/lzf.hpp"
#include "graphic/pcd_header.hpp"
#include "graphic/ply_values.hpp"
#include "graphic/vertex_columns.hpp"

namespace vorn::graphic {
namespace {

/// The value of a packed colour that a text gives: as a whole number, or as the float that has its bits.
double packedOf(double value, PlyType type) {
  if (type != PlyType::Float32 || (value >= 1 && value == std::floor(value))) {
    return value;
  }
  auto const single = static_cast<float>(value);
  std::uint32_t bits = 0;
  std::memcpy(&bits, &single, sizeof bits);
  return bits;
}

class PcdRows {
public:
  explicit PcdRows(PcdHeader& header, FileReader const& file) : header_(header), rows_(make(header, file)) {
    values_.resize(header.columns.size());
  }

  void readText(FileReader& file) {
    std::string_view line;
    for (std::uint64_t row = 0; row < header_.points; ++row) {
      do {
        if (!file.nextLine(line)) {
          file.fail("the file ends within its points");
        }
      } while (LineFields(line).atEnd());
      LineFields fields(line);
      for (std::size_t column = 0; column < values_.size(); ++column) {
        PcdColumn const& declared = header_.columns[column];
        if (!fields.number(values_[column])) {
          std::string_view const found = fields.word();
          file.failAtLine(found.empty() ? "the value of " + quoted(declared.name) + " is missing"
                                        : quoted(found) + " is no value of " + quoted(declared.name));
        }
        if (isPacked_[column]) {
          values_[column] = packedOf(values_[column], declared.type);
        }
      }
      if (!fields.atEnd()) {
        file.failAtLine("unexpected " + quoted(fields.rest()) + " behind the values of a point");
      }
      rows_.add(values_.data());
    }
  }

  void readBinary(FileReader& file) {
    std::size_t const size = header_.rowSize();
    for (std::uint64_t row = 0; row < header_.points; ++row) {
      if (file.fetch(size) < size) {
        file.failAtByte("the file ends within its points");
      }
      char const* from = file.data();
      for (std::size_t column = 0; column < values_.size(); ++column) {
        values_[column] = loadNumber(header_.columns[column].type, false, from);
        from += sizeOf(header_.columns[column].type);
      }
      rows_.add(values_.data());
      file.advance(size);
    }
  }

  /// All values of a field stand behind each other, those of one point together.
  void readCompressed(FileReader& file) {
    std::uint32_t sizes[2] = {};
    if (file.fetch(sizeof sizes) < sizeof sizes) {
      file.failAtByte("the sizes of the compressed points are missing");
    }
    std::memcpy(sizes, file.data(), sizeof sizes);
    file.advance(sizeof sizes);
    if (sizes[0] > file.remaining()) {
      file.failAtByte("the file ends within its compressed points");
    }
    std::size_t const rowSize = header_.rowSize();
    bool const isRight = rowSize > 0 ? sizes[1] % rowSize == 0 && sizes[1] / rowSize == header_.points
                                     : sizes[1] == 0 && header_.points == 0;
    if (!isRight || sizes[1] > mostLzfGrowth * sizes[0]) {
      file.failAtByte("the sizes of the compressed points do not fit the header");
    }
    file.fetch(sizes[0]);
    std::vector<char> const content = unpackLzf(file.data(), sizes[0], sizes[1]);
    if (content.size() != sizes[1]) {
      file.failAtByte("the compressed points are damaged");
    }
    for (std::uint64_t row = 0; row < header_.points; ++row) {
      std::size_t start = 0;
      for (std::size_t column = 0; column < values_.size(); ++column) {
        PcdColumn const& declared = header_.columns[column];
        std::size_t const size = sizeOf(declared.type);
        std::size_t const place = static_cast<std::size_t>(row) * declared.count + declared.number;
        values_[column] = loadNumber(declared.type, false, content.data() + start + place * size);
        bool const isLast = declared.number + 1 == declared.count;
        start += isLast ? declared.count * size * static_cast<std::size_t>(header_.points) : 0;
      }
      rows_.add(values_.data());
    }
  }

  GraphicObject finish(FileReader const& file) { return rows_.finish(file); }

private:
  VertexRows make(PcdHeader& header, FileReader const& file) {
    std::vector<std::string> names;
    for (PcdColumn const& column : header.columns) {
      names.push_back(column.name);
    }
    std::vector<VertexColumn> columns = columnsNamed(names);
    bool hasColors = std::any_of(columns.begin(), columns.end(), [](VertexColumn const& column) {
      return column.role == VertexColumn::Role::Color;
    });
    for (std::size_t i = 0; i < columns.size(); ++i) {
      bool const hasAlpha = names[i] == "rgba";
      bool const isPacked =
          (hasAlpha || names[i] == "rgb") && sizeOf(header.columns[i].type) == 4 && !hasColors;
      isPacked_.push_back(isPacked);
      if (isPacked) {
        hasColors = true;
        columns[i].role = hasAlpha ? VertexColumn::Role::PackedWithAlpha : VertexColumn::Role::Packed;
        if (header.data != PcdData::Ascii) {
          header.columns[i].type = PlyType::UInt32; // whose bits need not be a number as a float
        }
      }
    }
    if (header.points > 0 && !hasPositions(columns)) {
      file.fail("its points lack x, y or z");
    }
    VertexRows rows(columns, names);
    if (header.data != PcdData::Compressed) {
      rows.reserve(static_cast<std::size_t>(header.points));
    }
    return rows;
  }

  PcdHeader& header_;
  std::vector<bool> isPacked_;
  VertexRows rows_;
  std::vector<double> values_;
};

} // namespace

GraphicObject readPcd(FileReader& file) {
  PcdHeader header = readPcdHeader(file);
  if (header.points == 0) {
    return {};
  }
  PcdRows rows(header, file);
  switch (header.data) {
  case PcdData::Ascii:
    rows.readText(file);
    break;
  case PcdData::Binary:
    rows.readBinary(file);
    break;
  case PcdData::Compressed:
    rows.readCompressed(file);
    break;
  }
  return rows.finish(file);
}

} // namespace vorn::graphic
