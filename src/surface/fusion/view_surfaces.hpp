// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <vector>
#include <vorn/mv/pointcloud/point_cloud.hpp>
#include <vorn/mv/surface/fuse.hpp>

#include "core/progress.hpp"
#include "pointcloud/grid_steps.hpp"

namespace vorn::mv {

/// One view in the common frame, moved so that its origin is near the parts.
struct ViewSurface {
  cv::Mat_<cv::Vec3f> points;  ///< NaN where none is present
  cv::Mat_<cv::Vec3f> normals; ///< of length 1
  cv::Mat_<float> sigmas;      ///< standard deviation along the normal
  cv::Mat_<cv::Vec3b> texture; ///< the cloud's own, or empty
  cv::Matx44d viewFromCommon;
  GridSteps steps; ///< how far apart neighbours of one surface are
  bool isGrid = false;
  float spacing = 0.0F;
  float pitch = 0.0F;       ///< that of an even grid as dense; no less
  double medianSigma = 0.0; ///< along the line of sight
};

/// All views, and the point of the common frame that is their origin.
struct ViewSurfaces {
  std::vector<ViewSurface> views;
  cv::Vec3d origin;
};

/// Computes the views' missing normals and noise.
/// @throws Exception as `fuse`
ViewSurfaces viewSurfacesOf(std::vector<PointCloud> const& clouds, Progress const& progress);

} // namespace vorn::mv
