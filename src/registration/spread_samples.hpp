// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>
#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn::mv {

/// How far samples are from each other, see `pc::ICPAligner2`.
struct SampleSpread {
  double radius = 2.0;
  double angledRadius = 0.5;
  double angleThreshold = 10.0; ///< degrees
};

/// Samples that keep their distances from those before, at most `count`, taken in turn from all directions of
/// normals.
/// @param candidates cells with points and normals
std::vector<unsigned> spreadSamples(PointCloud const& cloud, std::vector<unsigned> const& candidates,
                                    SampleSpread const& spread, std::size_t count);

} // namespace vorn::mv
