// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/graphic/ply_file.hpp>

#include "graphic/far_coordinates.hpp"
#include "graphic/field_names.hpp"
#include "graphic/file_colors.hpp"
#include "graphic/file_reader.hpp"
#include "graphic/file_writer.hpp"
#include "graphic/number_text.hpp"
#include "graphic/ply_reader.hpp"
#include "graphic/ply_values.hpp"

namespace vorn::graphic {
namespace {

std::string headerOf(GraphicObject const& object, PLYFile::Format format, int colorChannels) {
  constexpr std::string_view formats[] = {"binary_little_endian", "binary_big_endian", "ascii"};
  std::string header = "ply\nformat ";
  header += formats[static_cast<std::size_t>(format)];
  header += " 1.0\nelement vertex " + std::to_string(object.vertices().size()) + "\n";
  for (char const axis : {'x', 'y', 'z'}) {
    header += hasOffset(object) ? "property double " : "property float ";
    header += axis;
    header += '\n';
  }
  if (object.hasNormals()) {
    header += "property float nx\nproperty float ny\nproperty float nz\n";
  }
  constexpr std::string_view colors[] = {"red", "green", "blue", "alpha"};
  for (int channel = 0; channel < colorChannels; ++channel) {
    header += "property uchar " + std::string(colors[channel]) + "\n";
  }
  for (std::string const& name : fileFieldNames(object)) {
    header += "property float ";
    header += fieldPrefix;
    header += name + "\n";
  }
  if (object.hasTriangles()) {
    header += "element face " + std::to_string(object.triangles().size()) +
              "\nproperty list uchar int vertex_indices\n";
  }
  return header + "end_header\n";
}

/// The arrays of the object's fields.
std::vector<float const*> fieldArrays(GraphicObject const& object) {
  std::vector<float const*> arrays;
  for (auto const& field : object.fields()) {
    arrays.push_back(field.second.data());
  }
  return arrays;
}

/// Values in a row.
template <bool swapped, class T>
char* putValues(char* to, cv::Vec<T, 3> const& values) {
  for (T const& value : values.val) {
    to = putBytes(to, loadValue<T, swapped>(reinterpret_cast<char const*>(&value)));
  }
  return to;
}

template <bool swapped>
void writeBinary(FileWriter& file, GraphicObject const& object, int colorChannels) {
  constexpr std::size_t longestVertex = 40;
  bool const isFar = hasOffset(object);
  std::vector<float const*> const fields = fieldArrays(object);
  bool const hasNormals = object.hasNormals();
  for (std::size_t vertex = 0; vertex < object.vertices().size(); ++vertex) {
    char* to = file.room(longestVertex);
    cv::Vec3f const& position = object.vertices()[vertex];
    to = isFar ? putValues<swapped>(to, placeOf(object, position)) : putValues<swapped>(to, position);
    if (hasNormals) {
      to = putValues<swapped>(to, object.normals()[vertex]);
    }
    if (colorChannels > 0) {
      std::memcpy(to, object.colors()[vertex].val,
                  4); // the fourth byte is written over when there is no alpha
      to += colorChannels;
    }
    file.advance(to);
    for (float const* const field : fields) {
      file.advance(putBytes(file.room(sizeof(float)),
                            loadValue<float, swapped>(reinterpret_cast<char const*>(field + vertex))));
    }
  }
  for (cv::Vec3i const& triangle : object.triangles()) {
    constexpr std::size_t triangleSize = 13;
    char* to = file.room(triangleSize);
    *to = 3;
    file.advance(putValues<swapped>(to + 1, triangle));
  }
}

void writeText(FileWriter& file, GraphicObject const& object, int colorChannels) {
  constexpr std::size_t longestLine = 3 * (longestDouble + 1) + 3 * (longestFloat + 1) + 4 * 4;
  bool const isFar = hasOffset(object);
  std::vector<float const*> const fields = fieldArrays(object);
  bool const hasNormals = object.hasNormals();
  for (std::size_t vertex = 0; vertex < object.vertices().size(); ++vertex) {
    char* const line = file.room(longestLine);
    cv::Vec3f const& position = object.vertices()[vertex];
    char* to = isFar ? putDoubles(line, placeOf(object, position)) : putFloats(line, position);
    if (hasNormals) {
      *to++ = ' ';
      to = putFloats(to, object.normals()[vertex]);
    }
    for (int channel = 0; channel < colorChannels; ++channel) {
      *to++ = ' ';
      to = putInteger(to, object.colors()[vertex][channel]);
    }
    file.advance(to);
    for (float const* const field : fields) {
      char* const value = file.room(longestFloat + 1);
      *value = ' ';
      file.advance(putFloat(value + 1, field[vertex]));
    }
    char* const end = file.room(1);
    *end = '\n';
    file.advance(end + 1);
  }
  for (cv::Vec3i const& triangle : object.triangles()) {
    constexpr std::size_t longestFace = 1 + 3 * (longestInteger + 1) + 1;
    char* to = file.room(longestFace);
    *to++ = '3';
    for (int const index : triangle.val) {
      *to++ = ' ';
      to = putInteger(to, index);
    }
    *to++ = '\n';
    file.advance(to);
  }
}

} // namespace

GraphicObject PLYFile::read(std::string const& path) const {
  FileReader file(path, "PLYFile");
  return readPly(file);
}

void PLYFile::write(std::string const& path, GraphicObject const& object) const {
  object.assertValid();
  int const colorChannels = colorChannelsOf(object);

  FileWriter file(path);
  file.write(headerOf(object, format_, colorChannels));
  switch (format_) {
  case Format::BinaryLittleEndian:
    writeBinary<false>(file, object, colorChannels);
    break;
  case Format::BinaryBigEndian:
    writeBinary<true>(file, object, colorChannels);
    break;
  case Format::Ascii:
    writeText(file, object, colorChannels);
    break;
  }
  file.commit();
}

} // namespace vorn::graphic
