// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>
#include <vector>

#include <vorn/mv/calib/adjustment.hpp>
#include <vorn/mv/scanner/calibration.hpp>

namespace vorn::mv {

/// What a dot of the target is known by: its place on it.
using DotPlace = std::pair<float, float>;

inline DotPlace placeOf(cv::Point2f const& dot) {
  return {dot.x, dot.y};
}

/// The used views, as adjustments take them: all dots of the first device, with those of the second one
/// beside them, and dots that only the second one sees.
std::vector<AdjustmentView> adjustmentViews(std::vector<CalibratedView> const& views);

} // namespace vorn::mv
