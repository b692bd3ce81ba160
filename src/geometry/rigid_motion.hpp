// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core.hpp>

namespace vorn::mv {

/// Whether a matrix is a rotation and a shift: finite, no element of R R^T farther than the tolerance from
/// the identity's, no reflection, and a last row of (0, 0, 0, 1), but for the rounding of an inversion.
inline bool isRigidMotion(cv::Matx44d const& motion, double tolerance) {
  constexpr double rounding = 1e-9;
  cv::Matx33d const rotation = motion.get_minor<3, 3>(0, 0);
  cv::Matx14d const last = motion.row(3) - cv::Matx14d(0, 0, 0, 1);
  return cv::checkRange(motion) &&
         cv::norm(rotation * rotation.t() - cv::Matx33d::eye(), cv::NORM_INF) < tolerance &&
         cv::determinant(rotation) > 0.0 && cv::norm(last, cv::NORM_INF) < rounding;
}

} // namespace vorn::mv
