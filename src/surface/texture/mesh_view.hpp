// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>
#include <vector>
#include <vorn/mv/surface/texture.hpp>

namespace vorn::mv {

/// A mesh as one view sees it.
struct MeshView {
  std::vector<cv::Point2f> pixels; ///< of the vertices
  std::vector<float> cosines; ///< of the angle between normal and line of sight; 0 where a vertex is not seen
  std::vector<float> weights; ///< of the vertices: by how squarely and in how many pixels they are seen
  std::vector<float> depths;  ///< of the vertices
  std::vector<float> areas;   ///< of the triangles in pixels; 0 where one is not seen whole
};

MeshView meshViewOf(SurfaceMesh const& mesh, TextureView const& view, double maxViewAngle,
                    double depthTolerance);

/// The median edge of triangles; without any, the median distance to the nearest vertex of a sample.
double usualEdge(SurfaceMesh const& mesh);

} // namespace vorn::mv
