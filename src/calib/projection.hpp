// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/matx.hpp>

#include "calib/undistortion.hpp"

namespace vorn::mv {

/// OpenCV's lens model from points to pixels, with its derivatives, in double.
class Projection {
public:
  /// fx, fy, cx, cy, k1, k2, p1, p2, k3, k4, k5, k6, s1, s2, s3, s4.
  static constexpr int parameterCount = 16;
  using ByPoint = cv::Matx23d;
  using ByParameters = cv::Matx<double, 2, parameterCount>;

  explicit Projection(CameraNumbers const& camera) : camera_(camera) {}

  /// The pixel that shows a point of the camera's frame. A point in the camera's plane gives no finite pixel,
  /// one behind the camera the pixel of the point opposite.
  /// @param byPoint, byParameters the pixel's derivatives, where wanted
  cv::Vec2d operator()(cv::Vec3d const& point, ByPoint* byPoint = nullptr,
                       ByParameters* byParameters = nullptr) const;

private:
  CameraNumbers camera_;
};

} // namespace vorn::mv
