// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/graphic/obj_file.hpp>

#include <algorithm>
#include <array>
#include <string>

#include "graphic/far_coordinates.hpp"
#include "graphic/file_colors.hpp"
#include "graphic/file_reader.hpp"
#include "graphic/file_writer.hpp"
#include "graphic/number_text.hpp"
#include "graphic/obj_reader.hpp"

namespace vorn::graphic {
namespace {

/// The texts of all colour components: " 0.5021" for 128. Four digits, rounded up, so that both readers that
/// round and readers that cut off get the same byte back.
class ColorTexts {
public:
  ColorTexts() {
    constexpr int digits = 4;
    constexpr int scale = 10000;
    for (int color = 0; color <= 255; ++color) {
      int const rounded = (color * scale + 254) / 255;
      std::string fraction = std::to_string(scale + rounded % scale).substr(1, digits);
      fraction.erase(fraction.find_last_not_of('0') + 1);
      texts_[static_cast<std::size_t>(color)] =
          " " + std::to_string(rounded / scale) + (fraction.empty() ? "" : "." + fraction);
    }
  }
  std::string const& operator[](unsigned char color) const { return texts_[color]; }

private:
  std::array<std::string, 256> texts_;
};

void writeVertices(FileWriter& file, GraphicObject const& object) {
  constexpr std::size_t longestLine = 2 + 3 * (longestDouble + 1) + 4 * 8 + 1;
  bool const isFar = hasOffset(object);
  ColorTexts const colorTexts;
  int const colorChannels = colorChannelsOf(object);
  for (std::size_t vertex = 0; vertex < object.vertices().size(); ++vertex) {
    char* to = putText(file.room(longestLine), "v ");
    cv::Vec3f const& position = object.vertices()[vertex];
    to = isFar ? putDoubles(to, placeOf(object, position)) : putFloats(to, position);
    for (int channel = 0; channel < colorChannels; ++channel) {
      to = putText(to, colorTexts[object.colors()[vertex][channel]]);
    }
    *to++ = '\n';
    file.advance(to);
  }
}

void writeNormals(FileWriter& file, GraphicObject const& object) {
  constexpr std::size_t longestLine = 3 + 3 * (longestFloat + 1) + 1;
  for (cv::Vec3f const& normal : object.normals()) {
    char* to = putText(file.room(longestLine), "vn ");
    to = putFloats(to, normal);
    *to++ = '\n';
    file.advance(to);
  }
}

void writeFaces(FileWriter& file, GraphicObject const& object) {
  constexpr std::size_t longestLine = 2 + 3 * (2 * longestInteger + 3) + 1;
  for (cv::Vec3i const& triangle : object.triangles()) {
    char* to = putText(file.room(longestLine), "f");
    for (int const index : triangle.val) {
      *to++ = ' ';
      char const* const begin = to;
      to = putInteger(to, index + 1LL);
      if (object.hasNormals()) {
        std::string_view const number(begin, static_cast<std::size_t>(to - begin));
        to = putText(putText(to, "//"), number);
      }
    }
    *to++ = '\n';
    file.advance(to);
  }
}

} // namespace

GraphicObject OBJFile::read(std::string const& path) const {
  FileReader file(path, "OBJFile");
  return readObj(file);
}

void OBJFile::write(std::string const& path, GraphicObject const& object) const {
  object.assertValid();
  FileWriter file(path);
  file.write("# " + std::to_string(object.vertices().size()) + " vertices, " +
             std::to_string(object.triangles().size()) + " triangles\n");
  writeVertices(file, object);
  writeNormals(file, object);
  writeFaces(file, object);
  file.commit();
}

} // namespace vorn::graphic
