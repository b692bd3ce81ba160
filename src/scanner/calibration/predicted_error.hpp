// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <vorn/mv/scanner/point_uncertainty.hpp>

#include "scanner/scan/sight_geometry.hpp"

namespace vorn::mv {

/// The points of a grid over what both devices see of a volume, in the camera's frame.
std::vector<cv::Vec3d> pointsIn(WorkingVolume const& volume, SightGeometry const& geometry);

/// What a calibration with such a covariance is expected to be wrong by at these points.
/// @param points at least one
/// @param barLength 0 to leave out the lengths
PredictedError predictedError(SightGeometry const& geometry, CalibrationMatrix const& covariance,
                              WorkingVolume const& volume, std::vector<cv::Vec3d> const& points,
                              double barLength);

/// The matrix W whose product with a covariance C has the square of `PredictedError::rigid` for its trace: to
/// compare many covariances at the same points.
/// @param points at least one
CalibrationMatrix shapeWeightOf(SightGeometry const& geometry, std::vector<cv::Vec3d> const& points);

/// @throws Exception for depths out of order
void checkVolume(WorkingVolume const& volume, char const* context);

} // namespace vorn::mv
