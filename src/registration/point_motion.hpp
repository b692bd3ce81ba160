// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/matx.hpp>
#include <vector>

namespace vorn::mv {

/// The rigid motion that carries points onto others with the least squares, points in a plane included (W.
/// Kabsch, "A solution for the best rotation to relate two sets of vectors", 1976).
/// @param from at least three points, not all on a line
/// @param to   as many
cv::Matx44d motionBetween(std::vector<cv::Vec3d> const& from, std::vector<cv::Vec3d> const& to);

/// A point carried by a motion.
inline cv::Vec3d moved(cv::Matx44d const& motion, cv::Vec3d const& point) {
  cv::Vec4d const result = motion * cv::Vec4d(point[0], point[1], point[2], 1.0);
  return {result[0], result[1], result[2]};
}

/// The motion that turns about the origin, and then shifts.
inline cv::Matx44d motionOf(cv::Matx33d const& rotation, cv::Vec3d const& shift) {
  cv::Matx44d motion = cv::Matx44d::eye();
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      motion(i, j) = rotation(i, j);
    }
    motion(i, 3) = shift[i];
  }
  return motion;
}

/// The motion back.
inline cv::Matx44d rigidInverse(cv::Matx44d const& motion) {
  cv::Matx33d const back = motion.get_minor<3, 3>(0, 0).t();
  return motionOf(back, back * cv::Vec3d(-motion(0, 3), -motion(1, 3), -motion(2, 3)));
}

} // namespace vorn::mv
