// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv {

/// A confidence for each pixel of a wrapped phase map: 2 - dmax / 2π, where dmax is the largest phase jump to
/// one of its four neighbours.
///
/// So it is 2 on a flat map and falls to 1 as the jump grows to 2π; it is 0 where the
/// jump is more than 3π or the mask is 0. (No jump of floats is exactly 2π, so that needs no grade of its
/// own.) Border pixels are left as they are, and are 0 in a new map. Working memory: none that grows with the
/// map.
/// @param phase   H x W, radians
/// @param quality H x W; a map of that size already is written in place, one that shares memory with `phase`
/// too
/// @param mask    H x W CV_8UC1, 0 marks what to leave out; empty takes every pixel
/// @throws std::invalid_argument for a mask of another type or size; `quality` is unchanged then
VORN_API void calc_quality(cv::Mat_<float> const& phase, cv::Mat_<float>& quality,
                           cv::Mat const& mask = cv::Mat());

} // namespace vorn::mv
