// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/ply_reader.hpp"

#include <algorithm>
#include <string>

#include <vorn/core/system.hpp>

#include "graphic/line_fields.hpp"
#include "graphic/ply_faces.hpp"
#include "graphic/ply_header.hpp"
#include "graphic/ply_rows.hpp"
#include "graphic/ply_vertices.hpp"

namespace vorn::graphic {
namespace {

bool isOfFaces(PlyElement const& element) {
  return element.name == "face" || element.name == "tristrips";
}

/// What the file holds that the object has no place for, in words; empty where there is a place for all.
std::string notTaken(PlyHeader const& header) {
  std::string text;
  auto const add = [&](std::string const& what) { text += (text.empty() ? "" : ", ") + what; };
  for (PlyElement const& element : header.elements) {
    PlyProperty const* const indices = isOfFaces(element) ? findPlyIndices(element) : nullptr;
    if (element.count > 0 && element.name != "vertex" && indices == nullptr) {
      add("the " + std::to_string(element.count) + " rows of " + quoted(element.name));
      continue;
    }
    for (PlyProperty const& property : element.properties) {
      bool const isTaken = element.name == "vertex" ? !property.isList() : &property == indices;
      if (element.count > 0 && !isTaken) {
        add(quoted(property.name) + " of " + quoted(element.name));
      }
    }
  }
  return text;
}

} // namespace

GraphicObject readPly(FileReader& file) {
  PlyHeader const header = readPlyHeader(file);
  auto const vertex = std::find_if(header.elements.begin(), header.elements.end(),
                                   [](PlyElement const& element) { return element.name == "vertex"; });
  if (vertex == header.elements.end()) {
    file.fail("it has no vertices");
  }
  GraphicObject object;
  PolygonFans fans;
  for (PlyElement const& element : header.elements) {
    if (element.name == "vertex") {
      readPlyVertices(file, element, header.encoding, object);
    } else if (isOfFaces(element)) {
      readPlyFaces(file, element, header.encoding, vertex->count, object.triangles(), fans);
    } else {
      skipElement(file, element, header.encoding);
    }
  }
  fans.cutConcave(object.vertices(), object.triangles());
  if (std::string const left = notTaken(header); !left.empty()) {
    System::message(file.path() + ": passed over: " + left + "\n");
  }
  return object;
}

} // namespace vorn::graphic
