// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/matx.hpp>
#include <vector>

#include "registration/surface_features.hpp"

namespace vorn::mv {

/// The motions that lay pairs of points of the source onto pairs of the target that are like them: by their
/// features, their distance and the angles of their normals. Those first whose points agree with the most
/// others, then those whose points agree with the most others that are rare: on a ball or a face all points
/// are alike and agree with each other, and what is beside them on a body tells more. They need surfaces
/// whose curvature differs from place to place.
/// @param edge the distance of neighbours
std::vector<cv::Matx44d> motionsOfSimilarPoints(std::vector<OrientedPoint> const& source,
                                                std::vector<OrientedPoint> const& target, double edge);

} // namespace vorn::mv
