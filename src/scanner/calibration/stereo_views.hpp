// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <vorn/mv/scanner/calibrate_stereo.hpp>

#include "core/progress.hpp"
#include "scanner/calibration/target_views.hpp"

namespace vorn::mv {

/// `calibrateStereo` of views whose targets were found.
/// @param readings in how many ways both cameras may have counted the dots differently, of each view
StereoCalibration calibrateMeasured(std::vector<MeasuredView> measured, std::vector<int> const& readings,
                                    CalibrationSettings const& settings, Progress const& progress);

} // namespace vorn::mv
