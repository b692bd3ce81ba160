// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <opencv2/core/matx.hpp>

namespace vorn::mv {

/// exp of a rotation vector (O. Rodrigues).
inline cv::Matx33d rotationOf(cv::Vec3d const& vector) {
  double const angle = std::sqrt(vector.dot(vector));
  cv::Matx33d const cross(0.0, -vector[2], vector[1], vector[2], 0.0, -vector[0], -vector[1], vector[0], 0.0);
  constexpr double tiny = 1e-9;
  double const a = angle < tiny ? 1.0 : std::sin(angle) / angle;
  double const b = angle < tiny ? 0.5 : (1.0 - std::cos(angle)) / (angle * angle);
  return cv::Matx33d::eye() + a * cross + b * (cross * cross);
}

/// A transform followed by a motion: a rotation about a pivot, times `size`, and a translation.
inline cv::Matx44d movedBySmall(cv::Matx44d const& transform, cv::Vec6d const& motion, cv::Vec3d const& pivot,
                                double size) {
  cv::Matx33d const rotation = rotationOf(cv::Vec3d(motion[0], motion[1], motion[2]) * (1.0 / size));
  cv::Vec3d const offset = pivot + cv::Vec3d(motion[3], motion[4], motion[5]) - rotation * pivot;
  cv::Matx44d step = cv::Matx44d::eye();
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      step(i, j) = rotation(i, j);
    }
    step(i, 3) = offset[i];
  }
  return step * transform;
}

} // namespace vorn::mv
