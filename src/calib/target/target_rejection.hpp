// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "calib/target/measured_grid.hpp"
#include "calib/target/target_finder.hpp"
#include "calib/target/target_measurement.hpp"

namespace vorn::mv {

/// Takes out dots that do not stand where the dots around them say: cut, covered, or no dot of the target.
void dropMisplaced(MeasuredGrid& grid);

/// Takes out dots whose size differs from that of the dots around them: something covers or cuts them.
/// Compared are neighbours only, for overexposed dots look larger.
void dropMissized(MeasuredGrid& grid, GridMeasurement const& measurement);

/// Takes out dots outside the bounds of area and shape.
void keepWithinBounds(MeasuredGrid& grid, GridMeasurement const& measurement, TargetSettings const& settings);

} // namespace vorn::mv
