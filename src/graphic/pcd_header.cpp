// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/pcd_header.hpp"

#include <array>
#include <limits>
#include <optional>
#include <string_view>

#include <vorn/core/system.hpp>

#include "graphic/line_fields.hpp"

namespace vorn::graphic {
namespace {

/// Fields as the header's lines describe them.
struct Declared {
  std::vector<std::string> names;
  std::vector<std::int64_t> sizes;
  std::vector<char> types;
  std::vector<std::int64_t> counts;
  std::optional<std::int64_t> width;
  std::optional<std::int64_t> height;
  std::optional<std::int64_t> points;
};

std::int64_t takeCount(LineFields& fields, std::string_view keyword, FileReader const& file) {
  std::int64_t count = 0;
  constexpr std::int64_t most = std::int64_t{1} << 40; // products of two counts stay far from overflowing
  if (!fields.integer(count) || count < 0 || count > most) {
    file.failAtLine(quoted(keyword) + " needs a whole number from 0 to 2^40");
  }
  return count;
}

std::vector<std::int64_t> takeCounts(LineFields& fields, std::string_view keyword, FileReader const& file) {
  std::vector<std::int64_t> counts;
  while (!fields.atEnd()) {
    counts.push_back(takeCount(fields, keyword, file));
  }
  return counts;
}

PlyType typeOf(char type, std::int64_t size, FileReader const& file) {
  struct Known {
    char type;
    std::int64_t size;
    PlyType result;
  };
  constexpr Known known[] = {{'I', 1, PlyType::Int8},    {'I', 2, PlyType::Int16},  {'I', 4, PlyType::Int32},
                             {'U', 1, PlyType::UInt8},   {'U', 2, PlyType::UInt16}, {'U', 4, PlyType::UInt32},
                             {'F', 4, PlyType::Float32}, {'F', 8, PlyType::Float64}};
  for (Known const& each : known) {
    if (each.type == type && each.size == size) {
      return each.result;
    }
  }
  file.fail("a field of type " + quoted(std::string_view(&type, 1)) + " and " + std::to_string(size) +
            " bytes is unknown");
}

std::vector<PcdColumn> columnsOf(Declared const& declared, FileReader const& file) {
  std::size_t const count = declared.names.size();
  if (count == 0) {
    file.fail("its header names no FIELDS");
  }
  if (declared.sizes.size() != count || declared.types.size() != count ||
      (!declared.counts.empty() && declared.counts.size() != count)) {
    file.fail("its header has other numbers of FIELDS, SIZE, TYPE and COUNT");
  }
  std::vector<PcdColumn> columns;
  for (std::size_t i = 0; i < count; ++i) {
    PlyType const type = typeOf(declared.types[i], declared.sizes[i], file);
    std::int64_t const repeats = declared.counts.empty() ? 1 : declared.counts[i];
    constexpr std::size_t mostColumns = 4096;
    if (repeats > static_cast<std::int64_t>(mostColumns - columns.size())) {
      file.fail("its points have more than 4096 numbers each");
    }
    for (std::int64_t k = 0; k < repeats; ++k) {
      bool const isOne = repeats == 1 || declared.names[i] == "_";
      columns.push_back({isOne ? declared.names[i] : declared.names[i] + "_" + std::to_string(k), type,
                         static_cast<std::size_t>(repeats), static_cast<std::size_t>(k)});
    }
  }
  return columns;
}

std::uint64_t pointsOf(Declared const& declared, FileReader const& file) {
  if (declared.width.has_value() && declared.height.has_value()) {
    std::int64_t const cells =
        *declared.height > 0 && *declared.width > (std::int64_t{1} << 40) / *declared.height
            ? std::numeric_limits<std::int64_t>::max()
            : *declared.width * *declared.height;
    if (cells != declared.points.value_or(cells)) {
      file.fail("its header promises " + std::to_string(*declared.points) + " POINTS in " +
                std::to_string(*declared.height) + " rows of " + std::to_string(*declared.width));
    }
    return static_cast<std::uint64_t>(cells);
  }
  if (!declared.points.has_value()) {
    file.fail("its header says neither POINTS nor WIDTH and HEIGHT");
  }
  return static_cast<std::uint64_t>(*declared.points);
}

PcdData dataNamed(std::string_view name, FileReader const& file) {
  if (name == "ascii") {
    return PcdData::Ascii;
  }
  if (name == "binary") {
    return PcdData::Binary;
  }
  if (name == "binary_compressed") {
    return PcdData::Compressed;
  }
  file.failAtLine("unknown kind of DATA " + quoted(name));
}

void assertFits(PcdHeader const& header, FileReader const& file) {
  // As a text each value takes a digit and a blank or line end, which the last line may lack.
  std::uint64_t const least = header.data == PcdData::Ascii ? 2 * header.columns.size() : header.rowSize();
  std::uint64_t const left = file.remaining() + (header.data == PcdData::Ascii ? 1 : 0);
  if (header.data != PcdData::Compressed && least > 0 && header.points > left / least) {
    file.fail("the header promises " + std::to_string(header.points) + " points of at least " +
              std::to_string(least) + " bytes, but only " + std::to_string(left) +
              " bytes are left for them");
  }
}

/// Programs differ in whether points are moved by the viewpoint, a shift and a quaternion, or have been.
void sayUnusedViewpoint(LineFields& fields, FileReader const& file) {
  std::string const text(fields.rest());
  std::string const end = text + '\n';
  LineFields numbers({end.data(), text.size()});
  std::array<double, 7> pose = {};
  std::size_t count = 0;
  while (count < pose.size() && numbers.number(pose[count])) {
    ++count;
  }
  constexpr std::array<double, 7> none = {0, 0, 0, 1, 0, 0, 0};
  if (count > 0 && pose != none) {
    System::message(file.path() + ": the points are not moved by its VIEWPOINT " + text + "\n");
  }
}

/// Takes a line of the header.
void takeLine(std::string_view keyword, LineFields& fields, Declared& declared, FileReader const& file) {
  if (keyword == "FIELDS" || keyword == "COLUMNS") {
    declared.names.clear();
    while (!fields.atEnd()) {
      declared.names.emplace_back(fields.word());
    }
  } else if (keyword == "SIZE") {
    declared.sizes = takeCounts(fields, keyword, file);
  } else if (keyword == "TYPE") {
    declared.types.clear();
    while (!fields.atEnd()) {
      std::string_view const type = fields.word();
      declared.types.push_back(type.size() == 1 ? type[0] : '?');
    }
  } else if (keyword == "COUNT") {
    declared.counts = takeCounts(fields, keyword, file);
  } else if (keyword == "WIDTH") {
    declared.width = takeCount(fields, keyword, file);
  } else if (keyword == "HEIGHT") {
    declared.height = takeCount(fields, keyword, file);
  } else if (keyword == "POINTS") {
    declared.points = takeCount(fields, keyword, file);
  } else if (keyword == "VIEWPOINT") {
    sayUnusedViewpoint(fields, file);
  } else if (keyword == "VERSION") {
    fields.rest();
  } else {
    file.failAtLine("unknown keyword " + quoted(keyword) + " in the header");
  }
  if (!fields.atEnd()) {
    file.failAtLine("unexpected " + quoted(fields.rest()));
  }
}

} // namespace

std::size_t PcdHeader::rowSize() const {
  std::size_t size = 0;
  for (PcdColumn const& column : columns) {
    size += sizeOf(column.type);
  }
  return size;
}

PcdHeader readPcdHeader(FileReader& file) {
  Declared declared;
  std::string_view line;
  while (file.nextLine(line)) {
    LineFields fields(line);
    std::string_view const keyword = fields.word();
    if (keyword.empty() || keyword[0] == '#') {
      continue;
    }
    if (keyword != "DATA") {
      takeLine(keyword, fields, declared, file);
      continue;
    }
    PcdHeader header;
    header.data = dataNamed(fields.word(), file);
    header.columns = columnsOf(declared, file);
    header.points = pointsOf(declared, file);
    assertFits(header, file);
    return header;
  }
  file.fail("it is no PCD file: its header does not end with DATA");
}

} // namespace vorn::graphic
