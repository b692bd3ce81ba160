// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn::mv {

/// A typical distance of neighbours of a cloud without a grid: the median one from a place to the nearest
/// other with a present point, of a few thousand places; 0 when all are in one. Builds the cloud's octree.
float listSpacingOf(PointCloud& cloud);

} // namespace vorn::mv
