// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/vertex_columns.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <string_view>
#include <utility>

#include <vorn/core/system.hpp>

#include "core/large_array.hpp"
#include "graphic/far_coordinates.hpp"
#include "graphic/field_names.hpp"
#include "graphic/file_colors.hpp"

namespace vorn::graphic {
namespace {

using Role = VertexColumn::Role;

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return text;
}

VertexColumn columnNamed(std::string const& name) {
  struct Triple {
    Role role;
    std::array<std::string_view, 3> names;
  };
  constexpr std::array<Triple, 5> triples{{{Role::Position, {"x", "y", "z"}},
                                           {Role::Normal, {"nx", "ny", "nz"}},
                                           {Role::Normal, {"normal_x", "normal_y", "normal_z"}},
                                           {Role::Color, {"red", "green", "blue"}},
                                           {Role::Color, {"r", "g", "b"}}}};
  std::string const wanted = lowerCase(name);
  for (Triple const& triple : triples) {
    auto const found = std::find(triple.names.begin(), triple.names.end(), wanted);
    if (found != triple.names.end()) {
      return {triple.role, static_cast<std::size_t>(found - triple.names.begin())};
    }
  }
  return {wanted == "_" ? Role::Skipped : Role::Field, 0};
}

bool isComplete(std::vector<VertexColumn> const& columns, Role role) {
  std::array<int, 3> found = {};
  for (VertexColumn const& column : columns) {
    if (column.role == role) {
      ++found[column.channel];
    }
  }
  return found == std::array<int, 3>{1, 1, 1};
}

unsigned char byteOf(double value) {
  return value >= 255 ? 255 : value > 0 ? static_cast<unsigned char>(value + 0.5) : 0;
}

cv::Vec4b unpacked(double value, Role role) {
  auto const packed = value >= 0 && value <= 4294967295.0 ? static_cast<std::uint32_t>(value) : 0U;
  auto const byte = [&](int shift) { return static_cast<unsigned char>(packed >> shift & 0xFFU); };
  return {byte(16), byte(8), byte(0), role == Role::PackedWithAlpha ? byte(24) : uchar{255}};
}

} // namespace

std::vector<VertexColumn> columnsNamed(std::vector<std::string> const& names) {
  std::vector<VertexColumn> columns;
  for (std::string const& name : names) {
    columns.push_back(columnNamed(name));
  }
  for (Role const role : {Role::Position, Role::Normal, Role::Color}) {
    if (!isComplete(columns, role)) {
      for (VertexColumn& column : columns) {
        column.role = column.role == role ? Role::Field : column.role;
      }
    }
  }
  return columns;
}

bool hasPositions(std::vector<VertexColumn> const& columns) {
  return isComplete(columns, Role::Position);
}

std::string columnNameOf(std::string const& fieldName) {
  bool const isMarked = fieldName.compare(0, fieldPrefix.size(), fieldPrefix) == 0;
  bool const hasMeaning = columnNamed(fieldName).role != Role::Field || lowerCase(fieldName) == "rgb" ||
                          lowerCase(fieldName) == "rgba";
  return isMarked || hasMeaning ? std::string(fieldPrefix) + fieldName : fieldName;
}

VertexRows::VertexRows(std::vector<VertexColumn> columns, std::vector<std::string> const& names)
    : columns_(std::move(columns)) {
  std::vector<std::string> fieldNames;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    Role const role = columns_[i].role;
    hasNormals_ = hasNormals_ || role == Role::Normal;
    hasColorColumns_ = hasColorColumns_ || role == Role::Color;
    hasColors_ = hasColors_ || role == Role::Color || role == Role::Packed || role == Role::PackedWithAlpha;
    if (role == Role::Field) {
      columns_[i].channel = fieldNames.size();
      fieldNames.push_back(names[i]);
    }
  }
  for (std::string const& name : fieldNamesOf(fieldNames)) {
    fields_.push_back(&object_.fields()[name]);
  }
}

void VertexRows::reserve(std::size_t count) {
  reserveLarge(places_, count);
  if (hasNormals_) {
    reserveLarge(object_.normals(), count);
  }
  if (hasColors_) {
    reserveLarge(object_.colors(), count);
  }
  for (std::vector<float>* const field : fields_) {
    reserveLarge(*field, count);
  }
}

void VertexRows::add(double const* values) {
  cv::Vec3d place;
  cv::Vec3f normal;
  cv::Vec4b color(0, 0, 0, 255);
  cv::Vec4b unitColor(0, 0, 0, 255);
  for (VertexColumn const& column : columns_) {
    double const value = *values++;
    auto const channel = static_cast<int>(column.channel);
    switch (column.role) {
    case Role::Position:
      place[channel] = value;
      break;
    case Role::Normal:
      normal[channel] = static_cast<float>(value);
      break;
    case Role::Color:
      color[channel] = byteOf(value);
      unitColor[channel] = colorByte(value);
      scales_.add(channel, value);
      break;
    case Role::Packed:
    case Role::PackedWithAlpha:
      color = unpacked(value, column.role);
      break;
    case Role::Field:
      fields_[column.channel]->push_back(static_cast<float>(value));
      break;
    case Role::Skipped:
      break;
    }
  }
  places_.push_back(place);
  if (hasNormals_) {
    object_.normals().push_back(normal);
  }
  if (hasColors_) {
    object_.colors().push_back(color);
  }
  if (hasColorColumns_) {
    unitColors_.push_back(unitColor);
  }
}

GraphicObject VertexRows::finish(FileReader const& file) {
  setPlaces(object_, places_);
  for (int channel = 0; channel < 4 && hasColorColumns_; ++channel) {
    for (std::size_t i = 0; scales_.isUnit(channel, false) && i < unitColors_.size(); ++i) {
      object_.colors()[i][channel] = unitColors_[i][channel];
    }
  }
  if (std::string const text = scales_.assumption(false); !text.empty()) {
    System::message(file.path() + ": " + text + "\n");
  }
  return std::move(object_);
}

} // namespace vorn::graphic
