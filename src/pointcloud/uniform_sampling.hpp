// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn::mv {

/// Goes through the present points in row-major order, keeps each that still stands, and sets the state of
/// all others that a radius search finds around it to 1.
void deleteDensePoints(PointCloud& cloud, float radius);

} // namespace vorn::mv
