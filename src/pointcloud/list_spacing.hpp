// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn::mv {

/// A typical distance of neighbours of a cloud without a grid: the median one from a place to the nearest
/// other with a present point, of a few thousand places; 0 when all are in one. Builds the cloud's octree.
float listSpacingOf(PointCloud& cloud);

/// The distance that neighbours of such a cloud would have on a square grid as dense, by how far the eighth
/// nearest is; 0 of fewer. Of points spread by chance it is twice as large as the typical distance, and what
/// joins them must reach as far. Builds the cloud's octree.
float listPitchOf(PointCloud& cloud);

} // namespace vorn::mv
