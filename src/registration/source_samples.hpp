// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <opencv2/core/matx.hpp>
#include <vector>
#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn::mv {

/// Points of a cloud with normals, patch by patch of its surface.
struct SourceSamples {
  std::vector<cv::Vec3f> points;
  std::vector<cv::Vec3f> normals;
  std::vector<unsigned> indices;        ///< the cells of the cloud
  std::vector<std::size_t> patchStarts; ///< and the number of points at the end

  std::size_t size() const { return points.size(); }
  std::size_t patchCount() const { return patchStarts.empty() ? 0 : patchStarts.size() - 1; }
};

/// Every so many-th present point with a normal: on a grid one of each `stride` x `stride` cells, else one of
/// `stride` * `stride` along the octree.
/// @param side each point stands for so many each way, of which noise may be common to neighbours
SourceSamples sampleEvenly(PointCloud& cloud, int stride, int side = 1);

/// The given points, those without a normal left out.
/// @throws Exception when an index is no cell of the cloud
SourceSamples samplesAt(PointCloud const& cloud, std::vector<unsigned> const& indices);

} // namespace vorn::mv
