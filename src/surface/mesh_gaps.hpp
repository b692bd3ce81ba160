// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <limits>
#include <opencv2/core/matx.hpp>
#include <vector>

namespace vorn::mv {

/// Which gaps of a mesh are filled.
struct GapLimits {
  std::size_t maxEdges = std::numeric_limits<std::size_t>::max(); ///< around the gap
  double maxLength = std::numeric_limits<double>::infinity();     ///< of the gap's rim
  float maxEdge = std::numeric_limits<float>::infinity();         ///< of the edges that fill it
};

/// Adds triangles over the rims of gaps: the shortest edges first that join two vertices of a rim, are not in
/// the mesh, and make triangles that face as the vertices do. Of a gap that cannot be filled whole the rest
/// is left. No edge gets more than two triangles.
/// @param normals one a vertex: which side the mesh faces
/// @param triangles no edge with more than two, all facing alike
void fillGaps(std::vector<cv::Vec3f> const& vertices, std::vector<cv::Vec3f> const& normals,
              std::vector<cv::Vec3i>& triangles, GapLimits const& limits);

} // namespace vorn::mv
