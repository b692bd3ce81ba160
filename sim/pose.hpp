// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/matx.hpp>

namespace vorn::sim {

/// A rigid transform; named `a_from_b` it takes a point from frame b to frame a: x_in_a = rotation * x_in_b +
/// translation. Millimetres.
struct Pose {
  cv::Matx33d rotation = cv::Matx33d::eye();
  cv::Vec3d translation;

  /// The pose with the given origin and with rotation Rz * Ry * Rx of the three angles in degrees.
  static Pose fromDegrees(cv::Vec3d const& translation, cv::Vec3d const& xyzDegrees);

  cv::Vec3d operator*(cv::Vec3d const& x_in_b) const { return rotation * x_in_b + translation; }

  /// a_from_b * b_from_c = a_from_c.
  Pose operator*(Pose const& b_from_c) const {
    return {rotation * b_from_c.rotation, rotation * b_from_c.translation + translation};
  }

  Pose inverse() const {
    cv::Matx33d const back = rotation.t();
    return {back, -(back * translation)};
  }

  /// The 4 x 4 homogeneous matrix.
  cv::Matx44d matrix() const;
};

} // namespace vorn::sim
