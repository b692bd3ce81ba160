// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>

#include <opencv2/calib3d.hpp>
#include <opencv2/core/matx.hpp>

namespace vorn::mv {

/// The axis of a rotation times its angle, exact for small angles too: below 1e-5 radians cv::Rodrigues gives
/// none.
inline cv::Vec3d rotationVector(cv::Matx33d const& R) {
  cv::Vec3d const sine(0.5 * (R(2, 1) - R(1, 2)), 0.5 * (R(0, 2) - R(2, 0)), 0.5 * (R(1, 0) - R(0, 1)));
  double const s = cv::norm(sine);
  double const c = 0.5 * (R(0, 0) + R(1, 1) + R(2, 2) - 1);
  if (c > 0) {
    return s > 0 ? sine * (std::atan2(s, c) / s) : sine;
  }
  cv::Vec3d vector;
  cv::Rodrigues(R, vector);
  return vector;
}

} // namespace vorn::mv
