// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "core/progress.hpp"

namespace vorn::mv {

/// A cloud of which every place stands for a small piece of the surface.
struct SurfaceBlocks {
  /// With normals; a grid where the cloud was one, a list where it was none.
  PointCloud cloud;
  int side = 1;              ///< points of the cloud that make a block, each way; 1: these are its own points
  double edge = 0.0;         ///< of the usual block
  std::size_t points = 0;    ///< in all blocks
  double scatter = 0.0;      ///< RMS of the points about their blocks, along normals
  double usualScatter = 0.0; ///< the same of the usual block: what single rough ones do not draw
};

/// Whether a cloud has so many points that blocks of them say as much.
bool isWorthBlocks(PointCloud const& cloud);
/// Whether blocks hold most of the cloud that they are of: they do not where it is rougher than they are
/// large.
bool areWhole(SurfaceBlocks const& blocks, PointCloud const& cloud);

/// The points of a cloud in blocks of some four by four neighbours: of a grid in its rows and columns, else
/// the leaves of its octree. A block lies at the mean of its points, moved along the normal by what the
/// curvature draws it off the surface, so that blocks of any size agree. Their noise is lower by the root of
/// their points, and there is a sixteenth of them. Blocks that a step or an edge goes through are left out.
///
/// Clouds with normals keep them, as means; without normals each block has one from its points and those of
/// the blocks around, and lists of blocks are oriented consistently.
SurfaceBlocks blocksOf(PointCloud& cloud, Progress const& progress);

} // namespace vorn::mv
