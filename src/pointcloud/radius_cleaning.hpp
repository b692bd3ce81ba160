// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>
#include <vorn/mv/pointcloud/octree.hpp>

#include "core/progress.hpp"

namespace vorn::mv {

/// The points that a pass in index order deletes when each present point must have `minNeighbours` present
/// points within `radius` at its turn, itself included, and a deleted one no longer counts for later ones.
///
/// `removed[i]` = 1 says that point i goes. What happens to a point depends on points of lower index only, so
/// the outcome of the pass is the only set that agrees with itself. It is found by rounds that each count in
/// parallel: the first round counts for all points; a further one only for those whose neighbourhood has lost
/// a point of lower index since, until none has.
/// @throws Cancelled when the observer stops it
std::vector<uchar> findSparsePoints(cv::Mat_<cv::Vec3f> const& points, std::vector<uchar> const& states,
                                    GridOctree const& tree, float radius, int minNeighbours,
                                    Progress const& progress);

} // namespace vorn::mv
