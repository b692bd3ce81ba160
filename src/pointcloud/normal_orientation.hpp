// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <vorn/mv/pointcloud/octree.hpp>

#include "core/progress.hpp"

namespace vorn::mv {

/// Turns the normals of present points so that neighbours agree, along a spanning tree of the graph of
/// nearest neighbours that crosses edges of the surface as late as it can (H. Hoppe et al., "Surface
/// Reconstruction from Unorganized Points", SIGGRAPH 1992). Then each connected piece is turned outwards as a
/// whole: away from its middle, or, where it has no inside, to the viewpoint.
void orientConsistently(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state,
                        GridOctree const& tree, cv::Point3f const& viewpoint, cv::Mat_<cv::Vec3f>& normals,
                        Progress const& progress);

} // namespace vorn::mv
