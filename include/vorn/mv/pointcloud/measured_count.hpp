// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include <vorn/core/export.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn::mv {

/// The number of points with state 0 and three finite coordinates. `PointCloud::presentCount` counts those
/// cells of a grid too that hold no point (NaN), as long as nothing has deleted them.
[[nodiscard]] VORN_API std::size_t measuredCount(PointCloud const& cloud);

} // namespace vorn::mv
