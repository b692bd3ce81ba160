// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "pointcloud/point_access.hpp"
#include "pointcloud/sight_map.hpp"

namespace vorn::mv {

/// Whether a cell has a point.
inline bool isThere(PointCloud const& cloud, int row, int column) {
  return cloud.state()(row, column) == 0 && isFinite(cloud.points()(row, column).val);
}

/// What was seen from the origin of a cloud's frame, thinned.
class SeenCloud {
public:
  /// @param noise of the points along their normals
  SeenCloud(PointCloud& cloud, double noise);

  /// Whether all but strays was seen from the origin.
  bool isSeen() const { return isSeen_; }

  /// What the view makes of points, to its spacing or its noise.
  SightMap const& sight() const { return map_; }

  /// What the same view makes of points that lie only so exactly where they should.
  /// @param cell the distance by which they may lie beside, and before or behind
  SightMap roughly(double cell) const;

  /// Where the points were seen from, in their frame.
  cv::Vec3d viewpoint() const { return viewpoint_; }

  /// The share of this cloud's points within the view of another that lie before what that one sees; 0 for
  /// too few to tell.
  double conflictWith(SeenCloud const& other, cv::Matx44d const& otherFromOwn) const;

private:
  cv::Mat_<cv::Vec3f> thinned(PointCloud& cloud);
  bool isBeforeOrigin(PointCloud const& cloud) const;
  bool isItsOwnSight() const;

  double spacing_ = 0.0;
  cv::Vec3d viewpoint_;
  cv::Mat_<cv::Vec3f> points_;
  SightMap map_;
  bool isSeen_ = false;
};

} // namespace vorn::mv
