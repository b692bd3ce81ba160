// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/ply_reader.hpp"

#include <algorithm>

#include "graphic/ply_faces.hpp"
#include "graphic/ply_header.hpp"
#include "graphic/ply_rows.hpp"
#include "graphic/ply_vertices.hpp"

namespace vorn::graphic {

GraphicObject readPly(FileReader& file) {
  PlyHeader const header = readPlyHeader(file);
  auto const vertex = std::find_if(header.elements.begin(), header.elements.end(),
                                   [](PlyElement const& element) { return element.name == "vertex"; });
  if (vertex == header.elements.end()) {
    file.fail("it has no vertices");
  }
  GraphicObject object;
  for (PlyElement const& element : header.elements) {
    if (element.name == "vertex") {
      readPlyVertices(file, element, header.encoding, object);
    } else if (element.name == "face" || element.name == "tristrips") {
      readPlyFaces(file, element, header.encoding, vertex->count, object.triangles());
    } else {
      skipElement(file, element, header.encoding);
    }
  }
  return object;
}

} // namespace vorn::graphic
