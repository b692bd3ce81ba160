// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <vorn/mv/calib/camera_calib_data.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/scanner/calibration.hpp>

namespace vorn::mv {

/// Leaves out views in which the camera's or the projector's images are mirrored, or columns and rows
/// exchanged, and adds the findings to the report: there the target's order turns one way round in the camera
/// and the other way in the projector, which both see from the same side. `CalibrationSettings::outlierRatio`
/// may keep every view.
/// @throws Exception when that is so of half of the used views or more: no scanner can be made of them
void leaveOutMirrored(Calibration& calibration, CalibrationSettings const& settings);

/// The same for two cameras. A flat target looks the same from behind, so that each camera's own poses are
/// right for its mirrored image; only with those turned back do the views agree on where the cameras stand.
/// @param data0 the poses of the used views, in their order, before the first camera
/// @param data1 the same before the second one
/// @return whether views were left out, without which the cameras have to be calibrated again
bool leaveOutMirrored(Calibration& calibration, CalibrationSettings const& settings,
                      CameraCalibData const& data0, CameraCalibData const& data1);

/// Says of views that were left out for a device's error that its image is mirrored, where it fits turned
/// back: there the principal point lies on the other side of the image's middle.
/// @param models of the devices, calibrated from the other views
void nameMirrored(Calibration& calibration, std::vector<CameraModel> const& models);

} // namespace vorn::mv
