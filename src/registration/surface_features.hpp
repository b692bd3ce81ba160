// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <opencv2/core/matx.hpp>
#include <vector>

#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn::mv {

/// A point of a surface with its normal.
struct OrientedPoint {
  cv::Vec3d place;
  cv::Vec3d normal;
};

/// The mean points and normals of a cloud's points in cubes of an edge, in the order of the cubes.
/// @param cloud with normals
std::vector<OrientedPoint> thinned(PointCloud const& cloud, cv::Vec3d const& middle, double edge);

/// How the normals around a point differ from its own, whatever the frame.
using SurfaceFeature = std::array<float, 33>;

/// The features of points from those nearer than a radius (R. B. Rusu, N. Blodow and M. Beetz, "Fast Point
/// Feature Histograms (FPFH) for 3D registration", ICRA 2009).
std::vector<SurfaceFeature> featuresOf(std::vector<OrientedPoint> const& points, double radius);

} // namespace vorn::mv
