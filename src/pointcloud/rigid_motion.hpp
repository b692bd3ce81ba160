// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/matx.hpp>

namespace vorn::mv {

/// A rigid transform rounded to single precision, as points are moved by it.
class RigidMotion {
public:
  explicit RigidMotion(cv::Matx44d const& transform)
      : rotation_(transform.get_minor<3, 3>(0, 0)),
        translation_(static_cast<float>(transform(0, 3)), static_cast<float>(transform(1, 3)),
                     static_cast<float>(transform(2, 3))) {}

  /// R p + t
  cv::Vec3f move(cv::Vec3f const& point) const { return turn(point) + translation_; }

  /// R n, each dot product summed in the order x, y, z.
  cv::Vec3f turn(cv::Vec3f const& vector) const {
    cv::Vec3f turned;
    for (int i = 0; i < 3; ++i) {
      turned[i] = rotation_(i, 0) * vector[0] + rotation_(i, 1) * vector[1] + rotation_(i, 2) * vector[2];
    }
    return turned;
  }

private:
  cv::Matx33f rotation_;
  cv::Vec3f translation_;
};

} // namespace vorn::mv
