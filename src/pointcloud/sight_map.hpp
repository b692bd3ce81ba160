// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

namespace vorn::mv {

/// What a point is to a view.
enum class Sight {
  Unknown,    ///< out of its field or behind what it sees
  Nothing,    ///< where it sees nothing within its field
  Seen,       ///< it sees a surface there
  SeenThrough ///< it sees something behind
};

/// How far a view sees in each direction: its points as a depth map from its origin, in cells somewhat
/// coarser than they lie, so that it needs no model of the camera. Read-only once built.
class SightMap {
public:
  /// @param points NaN where none is present
  /// @param viewFromPoints takes the points to the frame of the view, whose origin they were seen from
  /// @param spacing the distance of neighbours
  /// @param margin a point this much before or behind a surface is on it
  SightMap(cv::Mat_<cv::Vec3f> const& points, cv::Matx44d const& viewFromPoints, double spacing,
           double margin);

  /// @param point in the frame of the points
  Sight of(cv::Vec3f const& point) const;

private:
  cv::Vec3d inView(cv::Vec3f const& point) const;

  cv::Matx33d rotation_;
  cv::Vec3d translation_;
  double margin_;
  double left_ = 0.0;
  double top_ = 0.0;
  double cellsPerUnit_ = 0.0;
  cv::Mat_<float> nearest_;  ///< of the cells around; 0 where one of them is empty
  cv::Mat_<float> farthest_; ///< of the cells around; 0 where all are empty
  cv::Mat_<float> least_;    ///< of the cells around that are not empty
};

} // namespace vorn::mv
