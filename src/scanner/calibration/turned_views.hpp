// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <vorn/mv/calib/adjustment.hpp>
#include <vorn/mv/scanner/calibration.hpp>

#include "scanner/calibration/adjusted_views.hpp"

namespace vorn::mv {

/// What a target that looks the same turned lets be known of its shape.
struct KnownTurns {
  AdjustmentSettings::Shape shape = AdjustmentSettings::Shape::Auto; ///< that may be looked for
  std::string limit;       ///< why it is not the one that is wanted; empty where it is
  bool areChanged = false; ///< whether views are counted otherwise now, and are to be calibrated anew
};

/// Counts the dots of a target that looks the same turned so that one shape of the target fits all used
/// views. Where the views do not tell, its shape is kept to what turning leaves as it is.
/// @param settings of an adjustment, with the shape that is wanted
KnownTurns countByShape(Calibration& calibration, CalibrationSettings const& calibrationSettings,
                        AdjustmentSettings const& settings, ViewAdjuster const& adjuster, Observer* observer);

} // namespace vorn::mv
