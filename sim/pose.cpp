// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/pose.hpp"

#include <cmath>
#include <opencv2/core/cvdef.h>

namespace vorn::sim {

Pose Pose::fromDegrees(cv::Vec3d const& translation, cv::Vec3d const& xyzDegrees) {
  cv::Vec3d const angles = xyzDegrees * (CV_PI / 180.0);
  double const cx = std::cos(angles[0]);
  double const sx = std::sin(angles[0]);
  double const cy = std::cos(angles[1]);
  double const sy = std::sin(angles[1]);
  double const cz = std::cos(angles[2]);
  double const sz = std::sin(angles[2]);
  cv::Matx33d const rx(1, 0, 0, 0, cx, -sx, 0, sx, cx);
  cv::Matx33d const ry(cy, 0, sy, 0, 1, 0, -sy, 0, cy);
  cv::Matx33d const rz(cz, -sz, 0, sz, cz, 0, 0, 0, 1);
  return {rz * ry * rx, translation};
}

cv::Matx44d Pose::matrix() const {
  cv::Matx33d const& r = rotation;
  cv::Vec3d const& t = translation;
  return {r(0, 0), r(0, 1), r(0, 2), t[0], r(1, 0), r(1, 1), r(1, 2), t[1],
          r(2, 0), r(2, 1), r(2, 2), t[2], 0,       0,       0,       1};
}

} // namespace vorn::sim
