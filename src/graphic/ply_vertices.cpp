// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/ply_vertices.hpp"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <vorn/core/system.hpp>

#include "core/large_array.hpp"
#include "graphic/far_coordinates.hpp"
#include "graphic/field_names.hpp"
#include "graphic/line_fields.hpp"
#include "graphic/ply_rows.hpp"
#include "graphic/ply_values.hpp"
#include "graphic/wide_colors.hpp"

namespace vorn::graphic {
namespace {

enum class Target { None, Position, Normal, Color, WideColor, Scalar };

/// Where the values of a vertex property go.
struct Field {
  Target target = Target::None;
  std::size_t channel = 0; ///< x, y, z or red, green, blue, alpha or the number of the scalar
};

Field fieldNamed(std::string_view name) {
  constexpr std::array<std::string_view, 3> positions = {"x", "y", "z"};
  constexpr std::array<std::string_view, 3> normals = {"nx", "ny", "nz"};
  constexpr std::array<std::string_view, 3> longNormals = {"normal_x", "normal_y", "normal_z"};
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
  if (std::size_t const channel = find(longNormals, name); channel < longNormals.size()) {
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
  return {Target::Scalar, 0};
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

/// Whether the scale of a colour of this type shows only in all of the file's.
bool isWideColor(PlyType type) {
  return type == PlyType::UInt16 || type == PlyType::Float32 || type == PlyType::Float64;
}

/// The meaning of each property of a vertex element. What there is of incomplete normals and colours are
/// scalars.
std::vector<Field> findFields(PlyElement const& element) {
  std::vector<Field> fields;
  for (PlyProperty const& property : element.properties) {
    fields.push_back(property.isList() ? Field{} : fieldNamed(property.name));
  }
  // Where both names of normals stand, the long ones are something else.
  for (std::size_t i = 0; i < fields.size(); ++i) {
    bool const isLong = element.properties[i].name.size() > 2;
    bool const hasShort = std::any_of(element.properties.begin(), element.properties.end(),
                                      [](PlyProperty const& property) { return property.name == "nx"; });
    if (fields[i].target == Target::Normal && isLong && hasShort) {
      fields[i].target = Target::Scalar;
    }
  }
  for (Target const target : {Target::Position, Target::Normal, Target::Color}) {
    if (!isComplete(fields, target)) {
      for (Field& field : fields) {
        field.target = field.target == target ? Target::Scalar : field.target;
      }
    }
  }
  bool const isWide = std::any_of(fields.begin(), fields.end(), [&](Field const& field) {
    auto const at = static_cast<std::size_t>(&field - fields.data());
    return field.target == Target::Color && isWideColor(element.properties[at].type);
  });
  for (Field& field : fields) {
    field.target = isWide && field.target == Target::Color ? Target::WideColor : field.target;
  }
  std::size_t scalars = 0;
  for (Field& field : fields) {
    if (field.target == Target::Scalar) {
      field.channel = scalars++;
    }
  }
  return fields;
}

/// Whether coordinates are of a type that a float does not hold.
bool hasWidePositions(PlyElement const& element, std::vector<Field> const& fields) {
  for (std::size_t column = 0; column < fields.size(); ++column) {
    PlyType const type = element.properties[column].type;
    if (fields[column].target == Target::Position &&
        (type == PlyType::Float64 || type == PlyType::Int32 || type == PlyType::UInt32)) {
      return true;
    }
  }
  return false;
}

/// Where the next rows' values go; null for what the file does not have.
struct Rows {
  float* positions = nullptr; ///< null where there are wide ones
  double* widePositions = nullptr;
  float* normals = nullptr;
  unsigned char* colors = nullptr;
  float* wideColors = nullptr; ///< as the file has them
  std::vector<float*> scalars;

  /// Calls `action(place, channels a row)` with where the field's values go.
  template <class Action>
  auto with(Field const& field, Action const& action) const {
    switch (field.target) {
    case Target::Normal:
      return action(normals + field.channel, 3);
    case Target::Color:
      return action(colors + field.channel, 4);
    case Target::WideColor:
      return action(wideColors + field.channel, 4);
    case Target::Scalar:
      return action(scalars[field.channel], 1);
    default:
      break;
    }
    return widePositions != nullptr ? action(widePositions + field.channel, 3)
                                    : action(positions + field.channel, 3);
  }

  void advance(std::size_t count) {
    move(positions, 3 * count);
    move(widePositions, 3 * count);
    move(normals, 3 * count);
    move(colors, 4 * count);
    move(wideColors, 4 * count);
    for (float*& scalar : scalars) {
      scalar += count;
    }
  }

private:
  template <class T>
  static void move(T*& place, std::size_t count) {
    place = place != nullptr ? place + count : nullptr;
  }
};

/// Takes `width` properties side by side, of one type and with channels side by side, from `count` rows that
/// stand `stride` bytes apart.
template <class T, bool swapped, std::size_t width>
void takeColumns(char const* from, std::size_t stride, std::size_t count, Field const& field,
                 Rows const& rows) {
  rows.with(field, [&](auto* to, std::size_t channels) {
    using To = std::remove_pointer_t<decltype(to)>;
    for (std::size_t row = 0; row < count; ++row, from += stride, to += channels) {
      for (std::size_t column = 0; column < width; ++column) {
        T const value = loadValue<T, swapped>(from + column * sizeof(T));
        if constexpr (std::is_same_v<To, unsigned char>) {
          to[column] = toColor(value);
        } else {
          to[column] = static_cast<To>(value);
        }
      }
    }
  });
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
  if (first + 3 > fields.size() || fields[first].channel != 0 || fields[first].target == Target::Scalar) {
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

bool takeColor(LineFields& line, unsigned char& color) {
  float value = 0;
  if (!line.number(value)) {
    return false;
  }
  color = colorByte(value / 255);
  return true;
}

void takeTextValues(FileReader const& file, LineFields& line, PlyElement const& element,
                    std::vector<Field> const& fields, Rows const& rows) {
  for (std::size_t column = 0; column < fields.size(); ++column) {
    PlyProperty const& property = element.properties[column];
    Field const& field = fields[column];
    if (field.target == Target::None) {
      skipProperty(file, line, property);
      continue;
    }
    bool const isTaken = rows.with(field, [&](auto* to, std::size_t /*channels*/) {
      if constexpr (std::is_same_v<decltype(to), unsigned char*>) {
        return takeColor(line, *to);
      } else {
        return line.number(*to);
      }
    });
    if (!isTaken) {
      failAtValue(file, line, property);
    }
  }
}

void readRows(FileReader& file, PlyElement const& element, PlyEncoding encoding,
              std::vector<Field> const& fields, Rows rows) {
  if (encoding == PlyEncoding::Ascii) {
    for (std::uint64_t row = 0; row < element.count; ++row, rows.advance(1)) {
      takeTextRow(file, element,
                  [&](LineFields& line) { takeTextValues(file, line, element, fields, rows); });
    }
  } else if (element.hasList()) {
    readUnequalRows(file, element, fields, isSwapped(encoding), std::move(rows));
  } else {
    readEqualRows(file, element, fields, isSwapped(encoding), std::move(rows));
  }
}

std::vector<std::string> scalarsOf(PlyElement const& element, std::vector<Field> const& fields) {
  std::vector<std::string> names;
  for (std::size_t column = 0; column < fields.size(); ++column) {
    if (fields[column].target == Target::Scalar) {
      names.push_back(element.properties[column].name);
    }
  }
  return names;
}

/// The scales of the element's colours, by their types.
WideColors wideColorsOf(PlyElement const& element, std::vector<Field> const& fields) {
  WideColors colors;
  for (std::size_t column = 0; column < fields.size(); ++column) {
    if (fields[column].target == Target::WideColor) {
      colors.setType(fields[column].channel, element.properties[column].type);
    }
  }
  return colors;
}

template <class T>
std::vector<T>& provide(std::vector<T>& array, std::size_t count, T const& value = T()) {
  reserveLarge(array, count);
  array.resize(count, value);
  return array;
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
  std::vector<cv::Vec3d> places;
  std::vector<cv::Vec4f> wideColors;
  Rows rows;
  if (hasWidePositions(element, fields)) {
    rows.widePositions = provide(places, count)[0].val;
  } else {
    rows.positions = provide(object.vertices(), count)[0].val;
  }
  if (isComplete(fields, Target::Normal)) {
    rows.normals = provide(object.normals(), count)[0].val;
  }
  if (isComplete(fields, Target::Color)) {
    rows.colors = provide(object.colors(), count, cv::Vec4b(0, 0, 0, 255))[0].val;
  }
  if (isComplete(fields, Target::WideColor)) {
    rows.wideColors = provide(wideColors, count)[0].val;
  }
  for (std::string const& name : fieldNamesOf(scalarsOf(element, fields))) {
    rows.scalars.push_back(provide(object.fields()[name], count).data());
  }
  readRows(file, element, encoding, fields, std::move(rows));
  if (!places.empty()) {
    setPlaces(object, places);
  }
  if (!wideColors.empty()) {
    std::string assumption;
    object.colors() = wideColorsOf(element, fields).toBytes(wideColors, assumption);
    if (!assumption.empty()) {
      System::message(file.path() + ": " + assumption + "\n");
    }
  }
}

} // namespace vorn::graphic
