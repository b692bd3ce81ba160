// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>
#include <vorn/mv/calib/line_scanner.hpp>
#include <vorn/mv/scanner/calibration.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// One pose of the target before a laser line scanner.
struct LaserView {
  std::string name;           ///< for messages and reports
  cv::Mat target;             ///< the target under plain light, CV_8UC1 or CV_8UC3
  std::vector<cv::Mat> lines; ///< an image a laser line, of the same size, CV_8UC1 or CV_8UC3
};

/// A calibrated laser line scanner, its camera the views' device.
struct LaserCalibration : Calibration {
  LineScanner object; ///< its camera and the laser planes in the camera's frame, in the views' order of lines
};

/// Calibrates a camera and its laser planes from views of the target. As `calibrateScanner`.
///
/// Lines count where they lie on the even ground of the target: the rim of a dot within a stripe's reach
/// moves the stripe. A view that all lines miss is left out.
/// @throws Exception, Cancelled as `calibrateScanner`; an Exception also when a line lies on the target in
///         fewer than three views, naming the others
VORN_API LaserCalibration calibrateLaser(std::vector<LaserView> const& views,
                                         CalibrationSettings const& settings, Observer* observer = nullptr);

/// Gives view number i, from any thread, several at a time. An `Exception` that it throws
/// becomes the view's reason.
using LaserViewSource = std::function<LaserView(std::size_t)>;

/// The same from views that are made when they are needed.
VORN_API LaserCalibration calibrateLaser(std::vector<std::string> const& names, LaserViewSource const& view,
                                         CalibrationSettings const& settings, Observer* observer = nullptr);

} // namespace vorn::mv
