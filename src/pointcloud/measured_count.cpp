// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/pointcloud/measured_count.hpp>

#include <cmath>

namespace vorn::mv {

std::size_t measuredCount(PointCloud const& cloud) {
  cloud.checkSizes();
  // A list is a row or a column: one long row costs less than many of one point.
  bool const isOnePiece = cloud.points().isContinuous() && cloud.state().isContinuous();
  int const rows = isOnePiece ? 1 : cloud.points().rows;
  std::size_t const columns =
      isOnePiece ? cloud.points().total() : static_cast<std::size_t>(cloud.points().cols);
  std::size_t count = 0;
  for (int row = 0; row < rows && columns > 0; ++row) {
    auto const* const points = cloud.points()[row];
    auto const* const states = cloud.state()[row];
    for (std::size_t column = 0; column < columns; ++column) {
      auto const& p = points[column];
      count +=
          states[column] == 0 && std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]) ? 1U : 0U;
    }
  }
  return count;
}

} // namespace vorn::mv
