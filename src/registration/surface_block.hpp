// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/matx.hpp>
#include <vector>

#include "registration/surface_blocks.hpp"

namespace vorn::mv {

/// Points that make a block, each way.
constexpr int blockSide = 4;
/// Mean length of the normals in a block without an edge.
constexpr double leastAgreement = 0.94;

/// A small piece of a surface; no points: there is none.
struct SurfaceBlock {
  double count = 0.0;
  cv::Vec3d place; ///< mean of the points
  cv::Vec3d normal;
  double lift = 0.0;    ///< from the mean to the surface, along the normal
  double squares = 0.0; ///< of the points' distances from the block along normals
  double radius = 0.0;  ///< RMS distance of the points from their mean
  double bend = 0.0;    ///< RMS distance of what the normal is from, from its plane
  double bendRadius = 0.0;
};

/// Which blocks have neither a step nor an edge in them.
std::vector<bool> smoothOnes(std::vector<SurfaceBlock> const& blocks);

/// Fills in what the blocks that are used measure.
void addFigures(std::vector<SurfaceBlock> const& blocks, std::vector<bool> const& areUsed,
                SurfaceBlocks& result);

/// The blocks of a grid whose cells have normals.
SurfaceBlocks gridBlocks(PointCloud const& cloud, Progress const& progress);

/// The blocks of a list.
SurfaceBlocks listBlocks(PointCloud& cloud, Progress const& progress);

} // namespace vorn::mv
