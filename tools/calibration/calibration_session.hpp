// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>
#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/calib/calib_pattern_detector.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/calib/laser_line.hpp>
#include <vorn/mv/calib/line_scanner.hpp>
#include <vorn/mv/calib/stereo_camera.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "tools/calibration/target_views.hpp"

namespace vorn::tools {

/// What a folder of target views is calibrated with.
struct CalibrationSettings {
  mv::CalibPatternDetector detector;
  /// The projector's pixels; empty to take them from the decoded images.
  cv::Size projector;
  /// How laser lines are looked for; their direction is found.
  mv::LaserLineOptions line;
};

/// A device and its model.
struct CalibratedDevice {
  std::string name; ///< "camera", "projector"
  mv::CameraModel model;
};

/// Everything that tells how good a calibration is.
struct Calibration {
  /// In the order of `TargetView::devices`.
  std::vector<CalibratedDevice> devices;
  std::vector<TargetView> views;
  /// Largest deviation of R^T R from the identity, R the averaged rotation between two devices.
  double rotationDefect = 0;
  /// Whether the projector's pixels were taken from the images.
  bool isProjectorGuessed = false;
};

struct ScannerCalibration : Calibration {
  mv::Sl3dScanner scanner;
};

struct StereoCalibration : Calibration {
  mv::StereoCamera stereo;
};

struct LaserCalibration : Calibration {
  mv::LineScanner scanner;
};

/// Calibrates a structured-light scanner from a folder with pose_00/target.png, columns_00.png ...,
/// rows_00.png ... and so on, or from the folder that holds that one as "calib".
///
/// Views that do not serve are left out and say why: no target or too few dots, no markers, another image
/// size, light that does not reach enough dots, a reprojection error far above the others'.
/// @throws Exception when fewer than three views are left, naming every view with its reason, or when all
///         views show the target from the same side, which leaves the focal length undetermined, or do not
///         agree on where camera and projector stand to each other
ScannerCalibration calibrateScanner(std::string const& folder, CalibrationSettings const& settings);

/// The same for two cameras, from pose_00/target.png and pose_00/target_1.png and so on. A view that one of
/// them cannot use is left out for both.
StereoCalibration calibrateStereo(std::string const& folder, CalibrationSettings const& settings);

/// The same for a camera with laser lines, from pose_00/target.png and pose_00/line_00.png ..., an image a
/// laser line. Lines count where they lie on the even ground of the target: the rim of a dot within a
/// stripe's reach moves the stripe. A view that all lines miss is left out.
/// @throws Exception also when a line lies on the target in fewer than three views, naming the others
LaserCalibration calibrateLaser(std::string const& folder, CalibrationSettings const& settings);

/// The figures of a calibration: resolutions, totals, and a member a view.
nlohmann::json report(Calibration const& calibration);

/// The same as a table.
std::string table(Calibration const& calibration);

/// A picture of the reprojection errors over the devices' images, much enlarged, one colour a view.
cv::Mat plotResiduals(Calibration const& calibration);

} // namespace vorn::tools
