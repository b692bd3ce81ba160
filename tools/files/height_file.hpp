// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <vorn/mv/surface/height_map.hpp>

#include "tools/files/output_path.hpp"

namespace vorn::tools {

/// How a height map's file holds heights.
enum class HeightDepth {
  Float, ///< CV_32F, NaN where there is none
  Bits16 ///< CV_16U: height = offset + scale * value, 0 where there is none
};

/// The path of the JSON that belongs to a height map's picture: the same with ".json" as its ending. It holds
/// "cellSize", "mapFromCloud" (four rows of four), and "scale" and "offset" of the values.
std::string heightJsonPath(std::string const& path);

/// A height map as two files, the picture (TIFF) and its JSON. In 16 bits the whole range of heights is used.
/// @throws Exception unless the path ends in .tif or .tiff
std::vector<FileContent> heightFiles(std::string const& path, mv::HeightMap const& map, HeightDepth depth);

/// The map that `heightFiles` has written; counts are 1 where there is a height.
/// @throws Exception when either file cannot be read or is not such a one
mv::HeightMap readHeightMap(std::string const& path);

} // namespace vorn::tools
