// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/mv/scanner/calibration.hpp>

namespace vorn::mv {

/// Leaves out views in which the camera's or the projector's images are mirrored, or columns and rows
/// exchanged, and adds the findings to the report: there the target's order turns one way round in the camera
/// and the other way in the projector, which both see from the same side. `CalibrationSettings::outlierRatio`
/// may keep every view.
/// @throws Exception when that is so of half of the used views or more: no scanner can be made of them
void leaveOutMirrored(Calibration& calibration, CalibrationSettings const& settings);

} // namespace vorn::mv
