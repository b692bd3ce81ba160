// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/matx.hpp>
#include <vector>

#include "graphic/file_reader.hpp"
#include "graphic/ply_header.hpp"

namespace vorn::graphic {

/// The list of vertex indices of an element; null when it has none.
PlyProperty const* findPlyIndices(PlyElement const& element);

/// Reads the polygons of the element "face", or the strips of the element "tristrips", as triangles; passes
/// over the element when it has no list of vertex indices.
/// @param vertexCount what the indices must stay below
void readPlyFaces(FileReader& file, PlyElement const& element, PlyEncoding encoding,
                  std::uint64_t vertexCount, std::vector<cv::Vec3i>& triangles);

} // namespace vorn::graphic
