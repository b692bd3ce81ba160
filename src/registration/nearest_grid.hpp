// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "registration/surface_features.hpp"

namespace vorn::mv {

/// Which point of a thinned cloud is near a place: looked up in a grid of cubes, in no time and roughly.
class NearestGrid {
public:
  /// @param edge of a cube; points up to two of them away are found
  NearestGrid(std::vector<OrientedPoint> const& points, double edge);

  /// The nearest point to the middle of the place's cube; null when there is none near.
  OrientedPoint const* near(cv::Vec3d const& place) const;

private:
  std::vector<OrientedPoint> const& points_;
  double edge_;
  cv::Vec3d low_;
  cv::Vec3i size_;
  std::vector<std::int32_t> nearest_;
};

} // namespace vorn::mv
