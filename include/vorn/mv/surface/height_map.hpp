// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <optional>

#include <vorn/core/export.hpp>
#include <vorn/mv/geometry/plane3f.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn::mv {

/// Which height a cell gets from the points that lie in it.
enum class HeightRule {
  Top,     ///< the highest
  Mean,    ///< the mean
  Median,  ///< the middle one, of an even number the mean of the two in the middle
  Weighted ///< the mean weighted by 1 / sigma^2, from the cloud's field "sigma"
};

/// How `heightMapOf` lays points onto a grid. Lengths are in the cloud's unit.
struct HeightMapSettings {
  /// The plane that heights are above, on the side of its normal; without one that which `fitPlane` fits to
  /// the points, outliers left aside, on the side of the viewpoint (the frame's origin).
  std::optional<Plane3f> plane;
  /// Edge length of a cell. 0: such that a cell holds one place with points where the cloud is evenly dense;
  /// points nearer to each other than two fifths of it, seen along the normal, are one place, so that parts
  /// measured several times, or lines of dense points, leave no more holes than others.
  double cellSize = 0.0;
  HeightRule rule = HeightRule::Mean; ///< which height a cell with several points gets
};

/// Heights over a plane.
struct HeightMap {
  /// NaN in cells without a point. The middle of cell (row, column) is at x = column * cellSize, y = row *
  /// cellSize of the map's frame, the height is its z.
  cv::Mat_<float> heights;
  cv::Mat_<int> counts;                          ///< points in each cell
  double cellSize = 0.0;                         ///< edge length of a cell, in the cloud's unit
  cv::Matx44d mapFromCloud = cv::Matx44d::eye(); ///< rigid
  double coverage = 0.0;                         ///< share of the cells that have a height
};

/// The heights of a cloud's present, finite points over a plane. The map's x axis is that of the cloud as far
/// as the plane allows. Working memory: 32 bytes a point beside the result, 40 with `Weighted`; more while a
/// plane is fitted (as `fitPlane`) or the cell size found (80 bytes a point in all).
/// @throws Exception when fewer than three points are present, when no plane is given and they lie on a line
///         or `fitPlane` throws,
///         when a plane has no normal, when a cell size is below 0 or gives more than 2^28 cells, and for
///         `Weighted` without a field "sigma" of positive numbers
VORN_API HeightMap heightMapOf(PointCloud const& cloud, HeightMapSettings const& settings = {});

/// The points of a height map in the frame of the cloud that it was made of: organized as the map, NaN where
/// it has no height.
/// @throws Exception when the map has no positive cell size
VORN_API PointCloud cloudOf(HeightMap const& map);

} // namespace vorn::mv
