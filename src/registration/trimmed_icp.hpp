// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <opencv2/core/matx.hpp>
#include <vector>
#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn::mv {

/// How `alignTrimmed` works; see `pc::AlignerBase`.
struct TrimmedIcp {
  double maxNormalAngle = 45.0;
  double maxDistance = 50.0;
  std::size_t minSamples = 200;
  double lowCut = 0.5;
  double highCut = 0.8;
  int maxIterations = 50;
  double minError = 1e-4;
};

struct TrimmedAlignment {
  cv::Matx44d targetFromSource;
  double rms = 0.0;
  std::vector<unsigned> used; ///< samples of the last step
};

/// Lays samples of a cloud with normals onto a cloud with normals; pending transforms are heeded.
/// @throws Exception when fewer than `minSamples` have a place on the target
TrimmedAlignment alignTrimmed(PointCloud const& source, PointCloud const& target,
                              std::vector<unsigned> const& samples, TrimmedIcp const& settings,
                              char const* caller);

/// Present points with a normal (where the cloud has normals) that `auxMask` does not call borders, steps or
/// worse, at most `count` of them, spread evenly.
std::vector<unsigned> evenSamples(PointCloud& cloud, std::size_t count);

} // namespace vorn::mv
