// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/scanner/calibration.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// One pose of the target before a camera.
struct CameraView {
  std::string name; ///< for messages and reports
  cv::Mat target;   ///< CV_8UC1 or CV_8UC3
};

/// A calibrated camera, which is the views' device.
struct CameraCalibration : Calibration {
  CameraModel object; ///< its matrix, distortion and image size
};

/// Calibrates a camera from views of the target. As `calibrateScanner`, but the target's markers need not be
/// in view.
/// @throws Exception, Cancelled as `calibrateScanner`
VORN_API CameraCalibration calibrateCamera(std::vector<CameraView> const& views,
                                           CalibrationSettings const& settings, Observer* observer = nullptr);

/// Gives view number i, from any thread, several at a time. An `Exception` that it throws
/// becomes the view's reason.
using CameraViewSource = std::function<CameraView(std::size_t)>;

/// The same from views that are made when they are needed.
VORN_API CameraCalibration calibrateCamera(std::vector<std::string> const& names,
                                           CameraViewSource const& view, CalibrationSettings const& settings,
                                           Observer* observer = nullptr);

} // namespace vorn::mv
