// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/ply_vertices.hpp"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "core/large_array.hpp"
#include "graphic/line_fields.hpp"
#include "graphic/ply_rows.hpp"
#include "graphic/ply_values.hpp"

namespace vorn::graphic {
namespace {

enum class Target { None, Position, Normal, Color };

/// Where the values of a vertex property go.
struct Field {
  Target target = Target::None;
  std::size_t channel = 0; ///< x, y, z or red, green, blue, alpha
};

Field fieldNamed(std::string_view name) {
  constexpr std::array<std::string_view, 3> positions = {"x", "y", "z"};
  constexpr std::array<std::string_view, 3> normals = {"nx", "ny", "nz"};
  constexpr std::array<std::string_view, 4> colors = {"red", "green", "blue", "alpha"};
  constexpr std::array<std::string_view, 4> shortColors = {"r", "g", "b", "a"};
  constexpr std::string_view colorPrefix = "diffuse_";

  auto const find = [](auto const& names, std::string_view wanted) {
    return static_cast<std::size_t>(std::find(names.begin(), names.end(), wanted) - names.begin());
  };
  if (std::size_t const channel = find(positions, name); channel < positions.size()) {
    return {Target::Position, channel};
  }
  if (std::size_t const channel = find(normals, name); channel < normals.size()) {
    return {Target::Normal, channel};
  }
  std::string_view const color =
      name.substr(0, colorPrefix.size()) == colorPrefix ? name.substr(colorPrefix.size()) : name;
  if (std::size_t const channel = find(colors, color); channel < colors.size()) {
    return {Target::Color, channel};
  }
  if (std::size_t const channel = find(shortColors, name); channel < shortColors.size()) {
    return {Target::Color, channel};
  }
  return {};
}

bool isComplete(std::vector<Field> const& fields, Target target) {
  std::array<bool, 3> found = {};
  for (Field const& field : fields) {
    if (field.target == target && field.channel < found.size()) {
      found[field.channel] = true;
    }
  }
  return found[0] && found[1] && found[2];
}

/// The meaning of each property of a vertex element. Normals and colours that lack a component mean nothing.
std::vector<Field> findFields(PlyElement const& element) {
  std::vector<Field> fields;
  for (PlyProperty const& property : element.properties) {
    fields.push_back(property.isList() ? Field{} : fieldNamed(property.name));
  }
  for (Target const target : {Target::Position, Target::Normal, Target::Color}) {
    if (!isComplete(fields, target)) {
      for (Field& field : fields) {
        field.target = field.target == target ? Target::None : field.target;
      }
    }
  }
  return fields;
}

/// Where the next rows' values go; null for what the file does not have.
struct Rows {
  float* positions;
  float* normals;
  unsigned char* colors;

  float* floats(Field const& field) const {
    return (field.target == Target::Normal ? normals : positions) + field.channel;
  }
  unsigned char* color(Field const& field) const { return colors + field.channel; }

  void advance(std::size_t count) {
    positions += 3 * count;
    normals = normals != nullptr ? normals + 3 * count : nullptr;
    colors = colors != nullptr ? colors + 4 * count : nullptr;
  }
};

/// Takes `width` properties side by side, of one type and with channels side by side, from `count` rows that
/// stand `stride` bytes apart.
template <class T, bool swapped, std::size_t width>
void takeColumns(char const* from, std::size_t stride, std::size_t count, Field const& field,
                 Rows const& rows) {
  auto const take = [&](auto* to, std::size_t channels, auto const& convert) {
    for (std::size_t row = 0; row < count; ++row, from += stride, to += channels) {
      for (std::size_t column = 0; column < width; ++column) {
        to[column] = convert(loadValue<T, swapped>(from + column * sizeof(T)));
      }
    }
  };
  if (field.target == Target::Color) {
    take(rows.color(field), 4, [](T value) { return toColor(value); });
  } else {
    take(rows.floats(field), 3, [](T value) { return static_cast<float>(value); });
  }
}

template <std::size_t width>
void takeColumns(PlyType type, bool swapped, char const* from, std::size_t stride, std::size_t count,
                 Field const& field, Rows const& rows) {
  withType(type, [&](auto typed) {
    using T = decltype(typed);
    (swapped ? takeColumns<T, true, width> : takeColumns<T, false, width>)(from, stride, count, field, rows);
  });
}

/// True when three properties from `first` on are x, y, z or the like, in this order and of one type.
bool isTriple(PlyElement const& element, std::vector<Field> const& fields, std::size_t first) {
  if (first + 3 > fields.size() || fields[first].channel != 0) {
    return false;
  }
  for (std::size_t column = first + 1; column < first + 3; ++column) {
    if (fields[column].target != fields[first].target || fields[column].channel != column - first ||
        element.properties[column].type != element.properties[first].type) {
      return false;
    }
  }
  return true;
}

/// Binary rows of one size: as many as the window holds at a time, column by column.
void readEqualRows(FileReader& file, PlyElement const& element, std::vector<Field> const& fields,
                   bool swapped, Rows rows) {
  std::size_t const stride = element.rowSize();
  for (std::uint64_t left = element.count; left > 0;) {
    fetchValues(file, element, stride);
    std::size_t const count =
        static_cast<std::size_t>(std::min<std::uint64_t>(left, file.fetch(stride) / stride));
    char const* from = file.data();
    for (std::size_t column = 0; column < fields.size();) {
      PlyType const type = element.properties[column].type;
      bool const threeAtOnce = isTriple(element, fields, column); // the usual case, in a third of the time
      if (fields[column].target != Target::None) {
        (threeAtOnce ? takeColumns<3> : takeColumns<1>)(type, swapped, from, stride, count, fields[column],
                                                        rows);
      }
      std::size_t const width = threeAtOnce ? 3 : 1;
      from += width * sizeOf(type);
      column += width;
    }
    file.advance(count * stride);
    rows.advance(count);
    left -= count;
  }
}

/// Binary rows with lists, which make each of another size.
void readUnequalRows(FileReader& file, PlyElement const& element, std::vector<Field> const& fields,
                     bool swapped, Rows rows) {
  for (std::uint64_t row = 0; row < element.count; ++row, rows.advance(1)) {
    for (std::size_t column = 0; column < fields.size(); ++column) {
      PlyProperty const& property = element.properties[column];
      if (fields[column].target == Target::None) {
        skipProperty(file, element, property, swapped);
        continue;
      }
      std::size_t const size = sizeOf(property.type);
      takeColumns<1>(property.type, swapped, fetchValues(file, element, size), size, 1, fields[column], rows);
      file.advance(size);
    }
  }
}

bool takeColor(LineFields& line, PlyType type, unsigned char& color) {
  float value = 0;
  if (!line.number(value)) {
    return false;
  }
  color = toColor(isInteger(type) ? value / 255 : value);
  return true;
}

void takeTextValues(FileReader const& file, LineFields& line, PlyElement const& element,
                    std::vector<Field> const& fields, Rows const& rows) {
  for (std::size_t column = 0; column < fields.size(); ++column) {
    PlyProperty const& property = element.properties[column];
    Field const& field = fields[column];
    if (field.target == Target::None) {
      skipProperty(file, line, property);
    } else if (!(field.target == Target::Color ? takeColor(line, property.type, *rows.color(field))
                                               : line.number(*rows.floats(field)))) {
      failAtValue(file, line, property);
    }
  }
}

} // namespace

void readPlyVertices(FileReader& file, PlyElement const& element, PlyEncoding encoding,
                     GraphicObject& object) {
  if (element.count == 0) {
    return;
  }
  std::vector<Field> const fields = findFields(element);
  if (!isComplete(fields, Target::Position)) {
    file.fail("its vertices lack x, y or z");
  }
  std::size_t const count = static_cast<std::size_t>(element.count);
  reserveLarge(object.vertices(), count);
  object.vertices().resize(count);
  if (isComplete(fields, Target::Normal)) {
    reserveLarge(object.normals(), count);
    object.normals().resize(count);
  }
  if (isComplete(fields, Target::Color)) {
    reserveLarge(object.colors(), count);
    object.colors().resize(count, cv::Vec4b(0, 0, 0, 255));
  }
  Rows rows = {object.vertices()[0].val, object.hasNormals() ? object.normals()[0].val : nullptr,
               object.hasColors() ? object.colors()[0].val : nullptr};
  if (encoding == PlyEncoding::Ascii) {
    for (std::size_t row = 0; row < count; ++row, rows.advance(1)) {
      takeTextRow(file, element,
                  [&](LineFields& line) { takeTextValues(file, line, element, fields, rows); });
    }
  } else if (element.hasList()) {
    readUnequalRows(file, element, fields, isSwapped(encoding), rows);
  } else {
    readEqualRows(file, element, fields, isSwapped(encoding), rows);
  }
}

} // namespace vorn::graphic
