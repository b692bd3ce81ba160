// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/matx.hpp>

namespace vorn::mv {

/// A distance that pairs of points are compared with: in double precision where it matters, and in single
/// precision where that settles it.
class DistanceLimit {
public:
  explicit DistanceLimit(float distance);

  /// farther[i] = 1 when a[i] and b[i] are farther from each other than the limit, else 0.
  void compareFarther(cv::Vec3f const* a, cv::Vec3f const* b, int count, uchar* farther) const;
  /// nearer[i] = 1 when a[i] and b[i] are nearer to each other than the limit, else 0.
  void compareNearer(cv::Vec3f const* a, cv::Vec3f const* b, int count, uchar* nearer) const;

private:
  double distance_;
  // A squared distance in single precision below or above these leaves no doubt.
  float surelyNearer_;
  float surelyFarther_;
};

} // namespace vorn::mv
