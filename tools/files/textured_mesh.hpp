// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <vorn/mv/surface/texture.hpp>

#include "tools/files/output_path.hpp"

namespace vorn::tools {

/// The paths of the files of a textured mesh: the .obj given, and with its name .mtl and .png.
std::vector<std::string> texturedMeshPaths(std::string const& path);

/// A mesh with its atlas as OBJ, material and picture, which name each other without folders.
/// @param offset where the zero of the mesh's vertices lies
std::vector<FileContent> texturedMeshFiles(std::string const& path, mv::SurfaceMesh const& mesh,
                                           cv::Vec3d const& offset, mv::MeshTexture const& texture);

} // namespace vorn::tools
