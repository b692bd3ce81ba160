// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <vorn/mv/pointcloud/normals.hpp>

#include "core/progress.hpp"

namespace vorn::mv {

/// Normals of points and how well their planes fit, as large as the cloud.
struct NormalField {
  cv::Mat_<cv::Vec3f> normals; ///< of length 1, or (0, 0, 0)
  cv::Mat_<float> fitError;    ///< if asked for, else empty
  cv::Mat_<float> curvature;   ///< if asked for, else empty
};

/// The normals of an organized cloud, turned to the viewpoint.
///
/// The plane at a point is that of the tangents dP/du and dP/dv, the least-squares slopes of the coordinates
/// over the columns u and rows v of a window. What is computed is their cross product alone: the sums of P u
/// and P v about the window's middle, which differ from the tangents by a regular 2 x 2 matrix. Windows
/// without a step are summed for all points at once; the others, and those more than half empty, take the
/// cells that links of neighbours without a step join to the middle.
NormalField gridNormals(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state,
                        NormalSettings const& settings, Progress const& progress);

} // namespace vorn::mv
