// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/pointcloud/measured_count.hpp>

#include <cmath>

namespace vorn::mv {

std::size_t measuredCount(PointCloud const& cloud) {
  cloud.checkSizes();
  std::size_t count = 0;
  for (int row = 0; row < cloud.points().rows; ++row) {
    auto const* const points = cloud.points()[row];
    auto const* const states = cloud.state()[row];
    for (int column = 0; column < cloud.points().cols; ++column) {
      auto const& p = points[column];
      count +=
          states[column] == 0 && std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]) ? 1U : 0U;
    }
  }
  return count;
}

} // namespace vorn::mv
