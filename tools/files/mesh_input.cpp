// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/mesh_input.hpp"

namespace vorn::tools {

mv::SurfaceMesh meshOfObject(graphic::GraphicObject const& object) {
  mv::SurfaceMesh mesh;
  mesh.vertices = object.vertices();
  mesh.triangles = object.triangles();
  for (cv::Vec4b const& color : object.colors()) {
    mesh.colors.emplace_back(color[2], color[1], color[0]);
  }
  mesh.normals = object.hasNormals() || !object.hasTriangles() ? object.normals() : vertexNormalsOf(mesh);
  return mesh;
}

} // namespace vorn::tools
