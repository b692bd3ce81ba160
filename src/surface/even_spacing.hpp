// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/matx.hpp>

namespace vorn::mv {

/// The side of a square that holds one place with points, seen along z, where a cloud is evenly dense:
/// neither its rim nor points far from it count. Points nearer to each other than two fifths of the side are
/// one place, so surfaces that were measured several times, or walls along z, have no smaller squares than
/// others. 0 when all points are in one place. Working memory: up to 56 bytes a point.
double evenSpacingOf(std::vector<cv::Vec3d> const& points);

} // namespace vorn::mv
