// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "calib/target/target_finder.hpp"
#include "calib/target/target_measurement.hpp"

namespace vorn::mv {

/// Takes out dots that do not stand where the dots around them say: cut, covered, or no dot of the target.
void dropMisplaced(std::vector<MeasuredDot>& dots);

/// Takes out dots whose size differs from that of the dots around them: something covers or cuts them.
/// Compared are neighbours only, for overexposed dots look larger.
void dropMissized(std::vector<MeasuredDot>& dots, GridMeasurement const& grid);

/// Takes out dots outside the bounds of area and shape.
void keepWithinBounds(std::vector<MeasuredDot>& dots, GridMeasurement const& grid,
                      TargetSettings const& settings);

} // namespace vorn::mv
