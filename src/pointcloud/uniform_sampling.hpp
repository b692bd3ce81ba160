// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn::mv {

/// Goes through the present points in row-major order, keeps each that still stands, and deletes all others
/// that a radius search finds around it, in a new undo generation.
/// @param observer may be null
/// @throws Cancelled when the observer stops it; the states are as they were
void deleteDensePoints(PointCloud& cloud, float radius, Observer* observer = nullptr);

} // namespace vorn::mv
