// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// How `calcDeviations` measures.
struct DeviationSettings {
  /// Moves the cloud's `points()` into the surface's frame.
  cv::Matx44d surfaceFromCloud = cv::Matx44d::eye();
  /// Points farther than this from the surface have no deviation, in the unit of the clouds; 0: there is no
  /// such limit.
  double maxDistance = 0.0;
};

/// How far each point of a cloud lies off the surface of another: the distance to the plane at its place on
/// it, positive on the side that the surface's normals point to.
///
/// A point finds its place as in `registerClouds`; one beside the surface has none. Surfaces without normals
/// get some, as by `PointCloud::calcNormals`. Pending transforms are ignored. Working memory: about 20 bytes
/// a point of the surface, without normals 15 more.
/// @param observer hears of the points
/// @return as large as the cloud: NaN for absent points and those without a place
/// @throws Exception when `maxDistance` is negative, and when the surface has no point with a normal
/// @throws Cancelled when stopped by the observer
VORN_API cv::Mat_<float> calcDeviations(PointCloud const& cloud, PointCloud const& surface,
                                        DeviationSettings const& settings = {}, Observer* observer = nullptr);

} // namespace vorn::mv
