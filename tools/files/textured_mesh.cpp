// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/textured_mesh.hpp"

#include <filesystem>

#include "tools/files/image_files.hpp"
#include "tools/report/printed.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

std::string number(float value) {
  return printed(" %.9g", static_cast<double>(value));
}

void addVectors(std::string& text, char const* keyword, std::vector<cv::Vec3f> const& vectors) {
  for (cv::Vec3f const& v : vectors) {
    text += keyword + number(v[0]) + number(v[1]) + number(v[2]) + '\n';
  }
}

/// Places relative to an offset, as many digits as doubles tell.
void addPlaces(std::string& text, std::vector<cv::Vec3f> const& vertices, cv::Vec3d const& offset) {
  for (cv::Vec3f const& vertex : vertices) {
    cv::Vec3d const place = offset + cv::Vec3d(vertex);
    text += printed("v %.15g %.15g %.15g\n", place[0], place[1], place[2]);
  }
}

std::string objText(std::string const& material, mv::SurfaceMesh const& mesh, cv::Vec3d const& offset,
                    mv::MeshTexture const& texture) {
  std::string text = "mtllib " + material + "\n";
  if (offset == cv::Vec3d()) {
    addVectors(text, "v", mesh.vertices);
  } else {
    addPlaces(text, mesh.vertices, offset);
  }
  for (cv::Vec2f const& place : texture.places) {
    text += "vt" + number(place[0]) + number(place[1]) + '\n';
  }
  addVectors(text, "vn", mesh.normals);
  text += "usemtl part\n";
  for (std::size_t i = 0; i < mesh.triangles.size(); ++i) {
    text += 'f';
    for (int k = 0; k < 3; ++k) {
      int const vertex = mesh.triangles[i][k] + 1;
      text += printed(" %d/%d/%d", vertex, texture.placeTriangles[i][k] + 1, vertex);
    }
    text += '\n';
  }
  return text;
}

} // namespace

std::vector<std::string> texturedMeshPaths(std::string const& path) {
  return {path, fs::path(path).replace_extension(".mtl").string(),
          fs::path(path).replace_extension(".png").string()};
}

std::vector<FileContent> texturedMeshFiles(std::string const& path, mv::SurfaceMesh const& mesh,
                                           cv::Vec3d const& offset, mv::MeshTexture const& texture) {
  std::vector<std::string> const paths = texturedMeshPaths(path);
  auto const nameOf = [&](std::size_t i) { return fs::path(paths[i]).filename().string(); };
  return {{paths[2], encodedImage(paths[2], texture.atlas)},
          {paths[1], "newmtl part\nKa 1 1 1\nKd 1 1 1\nKs 0 0 0\nillum 1\nmap_Kd " + nameOf(2) + "\n"},
          {paths[0], objText(nameOf(1), mesh, offset, texture)}};
}

} // namespace vorn::tools
