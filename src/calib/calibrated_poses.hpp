// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/mv/calib/camera_calib_data.hpp>

namespace vorn::mv {

/// Appends the poses that a calibration added to a copy of `data`. The data's points stay in place, so that
/// references to them hold.
inline void addNewPoses(CameraCalibData& data, CameraCalibData const& calibrated) {
  for (std::size_t i = data.getPoses().size(); i < calibrated.getPoses().size(); ++i) {
    data.addPose(calibrated.getPoses()[i]);
  }
}

} // namespace vorn::mv
