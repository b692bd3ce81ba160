// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/matx.hpp>
#include <vector>

#include "graphic/file_reader.hpp"
#include "graphic/ply_header.hpp"
#include "graphic/polygon.hpp"

namespace vorn::graphic {

/// The list of vertex indices of an element; null when it has none.
PlyProperty const* findPlyIndices(PlyElement const& element);

/// Reads the polygons of the element "face", or the strips of the element "tristrips", as triangles; passes
/// over the element when it has no list of vertex indices.
/// @param vertexCount what the indices must stay below
/// @param fans of the polygons, to be cut anew where they are not convex
void readPlyFaces(FileReader& file, PlyElement const& element, PlyEncoding encoding,
                  std::uint64_t vertexCount, std::vector<cv::Vec3i>& triangles, PolygonFans& fans);

} // namespace vorn::graphic
