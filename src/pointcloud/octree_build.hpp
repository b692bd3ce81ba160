// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include <vorn/mv/pointcloud/octree.hpp>

#include "core/progress.hpp"
#include "pointcloud/point_sketch.hpp"

namespace vorn::mv {

/// A tree under construction: octants, the chain of point indices with the points' sketches, and the rounding
/// tolerance of the cubes.
struct OctreeParts {
  std::vector<BasicOctant<unsigned>> octants;
  std::vector<unsigned> chain;
  std::vector<PointSketch> sketches; ///< with `sketchLanes` - 1 more at the end
  float tolerance = 0.0F;
};

/// Builds the octree over the finite ones of `count` points.
///
/// Whether a point goes to the upper or lower half at each level depends, axis by axis, on its own coordinate
/// only. So the child codes of ten levels are worked out at once for all points, as one number a point, and a
/// stable radix sort of these numbers brings the points into the order of the chain. Clusters that ten levels
/// cannot separate are sorted again from there.
/// @throws Cancelled when the observer of `progress` stops it
template <class Points>
OctreeParts buildOctree(Points const& points, std::size_t count, std::size_t bucketCapacity,
                        float minHalfSize, Progress const& progress);

} // namespace vorn::mv
