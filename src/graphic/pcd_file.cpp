// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/graphic/pcd_file.hpp>

#include <cstdint>
#include <vector>

#include "graphic/far_coordinates.hpp"
#include "graphic/field_names.hpp"
#include "graphic/file_colors.hpp"
#include "graphic/file_reader.hpp"
#include "graphic/file_writer.hpp"
#include "graphic/number_text.hpp"
#include "graphic/pcd_reader.hpp"
#include "graphic/vertex_columns.hpp"

namespace vorn::graphic {
namespace {

std::string headerOf(GraphicObject const& object, PCDFile::Format format) {
  std::string names;
  std::string sizes;
  std::string types;
  std::string counts;
  auto const add = [&](std::string const& name, char const* size, char type) {
    names += ' ' + name;
    sizes += std::string(" ") + size;
    (types += ' ') += type;
    counts += " 1";
  };
  for (char const* const axis : {"x", "y", "z"}) {
    add(axis, hasOffset(object) ? "8" : "4", 'F');
  }
  if (object.hasNormals()) {
    for (char const* const axis : {"normal_x", "normal_y", "normal_z"}) {
      add(axis, "4", 'F');
    }
  }
  if (object.hasColors()) {
    add(colorChannelsOf(object) == 4 ? "rgba" : "rgb", "4", 'U');
  }
  for (std::string const& name : fileFieldNames(object)) {
    add(columnNameOf(name), "4", 'F');
  }
  std::string const count = std::to_string(object.vertices().size());
  return "# .PCD v0.7 - Point Cloud Data file format\nVERSION 0.7\nFIELDS" + names + "\nSIZE" + sizes +
         "\nTYPE" + types + "\nCOUNT" + counts + "\nWIDTH " + count +
         "\nHEIGHT 1\nVIEWPOINT 0 0 0 1 0 0 0\nPOINTS " + count + "\nDATA " +
         (format == PCDFile::Format::Ascii ? "ascii" : "binary") + "\n";
}

std::uint32_t packed(cv::Vec4b const& color, bool hasAlpha) {
  return (hasAlpha ? std::uint32_t{color[3]} << 24U : 0U) | std::uint32_t{color[0]} << 16U |
         std::uint32_t{color[1]} << 8U | std::uint32_t{color[2]};
}

/// Puts the values of a point with `put(value)`, in the order of the header.
template <class Put>
void putPoint(GraphicObject const& object, std::size_t vertex, bool hasAlpha, Put const& put) {
  cv::Vec3f const& position = object.vertices()[vertex];
  cv::Vec3d const place = placeOf(object, position);
  for (int axis = 0; axis < 3; ++axis) {
    hasOffset(object) ? put(place[axis]) : put(position[axis]);
  }
  if (object.hasNormals()) {
    for (float const value : object.normals()[vertex].val) {
      put(value);
    }
  }
  if (object.hasColors()) {
    put(packed(object.colors()[vertex], hasAlpha));
  }
  for (auto const& field : object.fields()) {
    put(field.second[vertex]);
  }
}

char* putNumber(char* to, float value) {
  return putFloat(to, value);
}
char* putNumber(char* to, double value) {
  return putDouble(to, value);
}
char* putNumber(char* to, std::uint32_t value) {
  return putInteger(to, value);
}

} // namespace

GraphicObject PCDFile::read(std::string const& path) const {
  FileReader file(path, "PCDFile");
  return readPcd(file);
}

void PCDFile::write(std::string const& path, GraphicObject const& object) const {
  object.assertValid();
  bool const hasAlpha = colorChannelsOf(object) == 4;
  FileWriter file(path);
  file.write(headerOf(object, format_));
  for (std::size_t vertex = 0; vertex < object.vertices().size(); ++vertex) {
    if (format_ == Format::Binary) {
      putPoint(object, vertex, hasAlpha,
               [&](auto value) { file.advance(putBytes(file.room(sizeof value), value)); });
      continue;
    }
    bool isFirst = true;
    putPoint(object, vertex, hasAlpha, [&](auto value) {
      char* to = file.room(longestDouble + 1);
      if (!isFirst) {
        *to++ = ' ';
      }
      isFirst = false;
      file.advance(putNumber(to, value));
    });
    file.advance(putText(file.room(1), "\n"));
  }
  file.commit();
}

} // namespace vorn::graphic
