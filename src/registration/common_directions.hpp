// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/matx.hpp>
#include <vector>

#include "registration/surface_features.hpp"

namespace vorn::mv {

/// The rotations under which directions that stand out in the source become those of the target: normals of
/// its largest faces, and axes of what is turned or extruded. Two directions give one; the most prominent
/// ones are turned about each other all round besides, for parts that show one alone. Made parts consist of
/// little else, and their features are alike everywhere.
/// @return `target_from_source`, each once, those of larger faces first
std::vector<cv::Matx33d> rotationsOfDirections(std::vector<OrientedPoint> const& source,
                                               std::vector<OrientedPoint> const& target);

} // namespace vorn::mv
