// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <vorn/mv/pointcloud/normals.hpp>
#include <vorn/mv/pointcloud/octree.hpp>

#include "core/progress.hpp"
#include "pointcloud/grid_normals.hpp"

namespace vorn::mv {

/// The normals of a cloud without a grid, from the present points nearest to each, turned to the viewpoint.
///
/// The points of a leaf of the tree have most of their neighbours in common: those of all of them are
/// gathered at once, and each point then picks its own among them by their distances, four or eight at a
/// time.
NormalField neighbourNormals(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state,
                             GridOctree const& tree, NormalSettings const& settings,
                             Progress const& progress);

} // namespace vorn::mv
