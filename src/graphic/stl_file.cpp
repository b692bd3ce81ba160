// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/graphic/stl_file.hpp>

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include "core/error.hpp"
#include "graphic/far_coordinates.hpp"
#include "graphic/file_reader.hpp"
#include "graphic/file_writer.hpp"
#include "graphic/number_text.hpp"
#include "graphic/stl_layout.hpp"
#include "graphic/stl_reader.hpp"

namespace vorn::graphic {
namespace {

/// A triangle's normal and its three corners, as the file holds them.
using Facet = std::array<cv::Vec3f, 4>;

Facet facetOf(GraphicObject const& object, cv::Vec3i const& triangle) {
  auto const vertex = [&](int corner) {
    return object.vertices()[static_cast<std::size_t>(triangle[corner])];
  };
  Facet facet = {cv::Vec3f(), vertex(0), vertex(1), vertex(2)};
  cv::Vec3d const origin = facet[1];
  cv::Vec3d const normal = (cv::Vec3d(facet[2]) - origin).cross(cv::Vec3d(facet[3]) - origin);
  double const length = std::sqrt(normal.dot(normal));
  if (length > 0 && std::isfinite(length)) {
    facet[0] = normal * (1 / length);
  }
  for (std::size_t corner = 1; corner <= 3 && hasOffset(object);
       ++corner) { // zero would change signs of zero
    facet[corner] = placeOf(object, facet[corner]);
  }
  return facet;
}

void writeBinary(FileWriter& file, GraphicObject const& object) {
  if (object.triangles().size() > std::numeric_limits<std::uint32_t>::max()) {
    throw error("A binary STL file cannot hold " + std::to_string(object.triangles().size()) + " triangles",
                "STLFile");
  }
  std::string prologue = "binary STL"; // must not begin with "solid"
  prologue.resize(stlPrologueSize);
  putBytes(prologue.data() + stlHeaderSize, static_cast<std::uint32_t>(object.triangles().size()));
  file.write(prologue);
  for (cv::Vec3i const& triangle : object.triangles()) {
    char* to = file.room(stlTriangleSize);
    for (cv::Vec3f const& vector : facetOf(object, triangle)) {
      to = putBytes(to, vector.val);
    }
    constexpr std::uint16_t noAttributes = 0;
    file.advance(putBytes(to, noAttributes));
  }
}

void writeText(FileWriter& file, GraphicObject const& object) {
  constexpr std::size_t longestFacet = 100 + 12 * (longestFloat + 1);
  file.write("solid mesh\n");
  for (cv::Vec3i const& triangle : object.triangles()) {
    Facet const facet = facetOf(object, triangle);
    char* to = putText(file.room(longestFacet), "facet normal ");
    to = putText(putFloats(to, facet[0]), "\nouter loop\n");
    for (std::size_t corner = 1; corner <= 3; ++corner) {
      to = putText(putFloats(putText(to, "vertex "), facet[corner]), "\n");
    }
    file.advance(putText(to, "endloop\nendfacet\n"));
  }
  file.write("endsolid mesh\n");
}

} // namespace

GraphicObject STLFile::read(std::string const& path) const {
  FileReader file(path, "STLFile");
  return readStl(file);
}

void STLFile::write(std::string const& path, GraphicObject const& object) const {
  object.assertValid();
  if (!object.isEmpty() && !object.hasTriangles()) {
    throw error("Cannot write " + path + ": STL holds only triangles, and all " +
                    std::to_string(object.vertices().size()) + " points would be lost",
                "STLFile");
  }
  FileWriter file(path);
  format_ == Format::Binary ? writeBinary(file, object) : writeText(file, object);
  file.commit();
}

} // namespace vorn::graphic
