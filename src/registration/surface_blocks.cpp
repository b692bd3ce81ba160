// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/surface_blocks.hpp"

#include <algorithm>
#include <cmath>
#include <vector>
#include <vorn/mv/pointcloud/measured_count.hpp>

#include "core/median.hpp"
#include "registration/surface_block.hpp"

namespace vorn::mv {

namespace {

/// With fewer blocks the points themselves are used.
constexpr double fewestBlocks = 3000.0;
/// Blocks whose points lie off their plane more than so many usual ones, and more than this share of their
/// radius, have a step or an edge in them.
constexpr double usualBends = 3.0;
constexpr double leastBend = 0.15;

} // namespace

std::vector<bool> smoothOnes(std::vector<SurfaceBlock> const& blocks) {
  std::vector<double> bends;
  for (SurfaceBlock const& block : blocks) {
    if (block.count > 0.0) {
      bends.push_back(block.bend);
    }
  }
  double const most = bends.empty() ? 0.0 : usualBends * medianAmong(bends);
  std::vector<bool> areSmooth;
  for (SurfaceBlock const& block : blocks) {
    areSmooth.push_back(block.count > 0.0 && block.bend <= std::max(most, leastBend * block.bendRadius));
  }
  return areSmooth;
}

void addFigures(std::vector<SurfaceBlock> const& blocks, std::vector<bool> const& areUsed,
                SurfaceBlocks& result) {
  std::vector<double> variances;
  std::vector<double> radii;
  double squares = 0.0;
  double freedoms = 0.0;
  double count = 0.0;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    if (areUsed[i] && blocks[i].count > 1.0) {
      squares += blocks[i].squares;
      freedoms += blocks[i].count - 1.0;
      variances.push_back(blocks[i].squares / (blocks[i].count - 1.0));
      radii.push_back(blocks[i].radius);
    }
    count += areUsed[i] ? blocks[i].count : 0.0;
  }
  result.points = static_cast<std::size_t>(count);
  if (!variances.empty()) {
    // Of a square's area, the RMS distance from its middle is its edge over the root of 6.
    result.edge = std::sqrt(6.0) * medianAmong(radii);
    result.scatter = std::sqrt(squares / freedoms);
    // The median of a sum of squares lies below its mean (Wilson and Hilferty).
    double const each = freedoms / static_cast<double>(variances.size());
    double const below = std::max(0.3, std::pow(1.0 - 2.0 / (9.0 * each), 3.0));
    result.usualScatter = std::sqrt(medianAmong(variances) / below);
  }
}

bool isWorthBlocks(PointCloud const& cloud) {
  return static_cast<double>(measuredCount(cloud)) >= fewestBlocks * blockSide * blockSide;
}

bool areWhole(SurfaceBlocks const& blocks, PointCloud const& cloud) {
  constexpr double leastShare = 0.5;
  return static_cast<double>(blocks.cloud.presentCount()) >= 0.5 * fewestBlocks &&
         static_cast<double>(blocks.points) >= leastShare * static_cast<double>(measuredCount(cloud));
}

SurfaceBlocks blocksOf(PointCloud& cloud, Progress const& progress) {
  if (cloud.isOrganized() && cloud.isContinous()) {
    return gridBlocks(cloud, progress);
  }
  return listBlocks(cloud, progress);
}

} // namespace vorn::mv
