// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/matx.hpp>
#include <vector>

#include "core/progress.hpp"

namespace vorn::mv {

/// Joins points of a surface with those around them.
///
/// Each point is joined with its neighbours of the Voronoi diagram of those around it, laid into its tangent
/// plane; a triangle stands where its three corners agree on it (after M. Gopi, S. Krishnan and C. T. Silva,
/// "Surface reconstruction based on lower dimensional localized Delaunay triangulation", 2000). An edge is
/// between two neighbours of a point's fan, so none has more than two triangles, which face one side. Gaps of
/// a few edges that are left where corners disagree are filled.
///
/// @param points  finite, with few nearer to each other than half their usual distance
/// @param normals one a point, of length 1, neighbours alike
/// @param maxEdge of a triangle; a few times the points' distance
/// @return triangles, counterclockwise seen from where normals point to; the same for any number of threads
std::vector<cv::Vec3i> triangulatedPoints(std::vector<cv::Vec3f> const& points,
                                          std::vector<cv::Vec3f> const& normals, float maxEdge,
                                          Progress const& progress = {});

} // namespace vorn::mv
