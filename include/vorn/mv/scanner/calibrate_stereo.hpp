// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/calib/stereo_camera.hpp>
#include <vorn/mv/scanner/calibration.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// One pose of the target before two cameras.
struct StereoView {
  std::string name;            ///< for messages and reports
  std::vector<cv::Mat> images; ///< of camera 0 and camera 1, CV_8UC1 or CV_8UC3
};

/// Two calibrated cameras, which are the views' devices.
struct StereoCalibration : Calibration {
  StereoCamera object; ///< both cameras and the transform between them
};

/// Calibrates two cameras from views of the target that both see. As `calibrateScanner`; a view that one
/// camera cannot use is left out for both.
/// @throws Exception, Cancelled as `calibrateScanner`
VORN_API StereoCalibration calibrateStereo(std::vector<StereoView> const& views,
                                           CalibrationSettings const& settings, Observer* observer = nullptr);

/// Gives view number i, from any thread, several at a time. An `Exception` that it throws
/// becomes the view's reason.
using StereoViewSource = std::function<StereoView(std::size_t)>;

/// The same from views that are made when they are needed.
VORN_API StereoCalibration calibrateStereo(std::vector<std::string> const& names,
                                           StereoViewSource const& view, CalibrationSettings const& settings,
                                           Observer* observer = nullptr);

} // namespace vorn::mv
