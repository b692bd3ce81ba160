// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/mv/pointcloud/point_cloud.hpp>
#include <vorn/mv/registration/registration.hpp>

namespace vorn::mv {

/// How much a cloud scatters by itself about a surface that is smooth over some eight neighbours, along
/// normals. Builds the octree of one without a grid.
/// @param cloud with normals
double scatterOf(PointCloud& cloud);

/// Fills `noise`, `conflict` and `doubts` of a result. Builds the octrees of clouds without a grid.
/// @param source, target with normals
void judge(PointCloud& source, PointCloud& target, Registration& result);

} // namespace vorn::mv
