// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/graphic/xyz_file.hpp>

#include "graphic/far_coordinates.hpp"
#include "graphic/field_names.hpp"
#include "graphic/file_reader.hpp"
#include "graphic/file_writer.hpp"
#include "graphic/number_text.hpp"
#include "graphic/vertex_columns.hpp"
#include "graphic/xyz_reader.hpp"

namespace vorn::graphic {

GraphicObject XYZFile::read(std::string const& path) const {
  FileReader file(path, "XYZFile");
  return readXyz(file);
}

void XYZFile::write(std::string const& path, GraphicObject const& object) const {
  object.assertValid();
  std::string header = "# x y z";
  header += object.hasNormals() ? " nx ny nz" : "";
  header += object.hasColors() ? " red green blue" : "";
  for (std::string const& name : fileFieldNames(object)) {
    header += ' ' + columnNameOf(name);
  }
  FileWriter file(path);
  file.write(header + "\n");
  constexpr std::size_t longestLine = 3 * (longestDouble + 1) + 3 * (longestFloat + 1) + 3 * 4;
  for (std::size_t vertex = 0; vertex < object.vertices().size(); ++vertex) {
    cv::Vec3f const& position = object.vertices()[vertex];
    char* to = file.room(longestLine);
    to = hasOffset(object) ? putDoubles(to, placeOf(object, position)) : putFloats(to, position);
    if (object.hasNormals()) {
      *to++ = ' ';
      to = putFloats(to, object.normals()[vertex]);
    }
    for (int channel = 0; object.hasColors() && channel < 3; ++channel) {
      *to++ = ' ';
      to = putInteger(to, object.colors()[vertex][channel]);
    }
    file.advance(to);
    for (auto const& field : object.fields()) {
      char* const value = putText(file.room(longestFloat + 1), " ");
      file.advance(putFloat(value, field.second[vertex]));
    }
    file.advance(putText(file.room(1), "\n"));
  }
  file.commit();
}

} // namespace vorn::graphic
