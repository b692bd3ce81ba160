// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>
#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/calib/calib_pattern_detector.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

namespace vorn::tools {

/// Points of the target that one device sees in one view, and how far the calibrated model misses them.
struct ViewPoints {
  std::vector<cv::Point2f> imgPnts;
  std::vector<cv::Point2f> objPnts;
  /// Model minus measurement, pixels; after calibration.
  std::vector<cv::Point2f> residuals;

  /// Root of the mean squared distance, pixels; 0 for no residuals.
  double rms() const;
};

/// One pose of the target.
struct CalibrationView {
  std::string name;
  /// Why the view takes no part; empty when it does.
  std::string rejection;
  bool isOriginMarked = false;
  ViewPoints camera;
  ViewPoints projector;
};

/// What a folder of target views is calibrated with.
struct CalibrationSettings {
  mv::CalibPatternDetector detector;
  /// The projector's pixels; empty to take them from the decoded images.
  cv::Size projector;
};

/// A calibration with everything that tells how good it is.
struct Calibration {
  mv::Sl3dScanner scanner;
  std::vector<CalibrationView> views;
  bool isProjectorGuessed = false;
  /// Largest deviation of R^T R from the identity, R the averaged rotation between the devices.
  double rotationDefect = 0;
};

/// Calibrates a structured-light scanner from a folder with pose_00/target.png, columns_00.png ...,
/// rows_00.png
/// ... and so on, or from the folder that holds that one as "calib".
///
/// Views that do not serve are left out and say why: no target or too few dots, no markers where others have
/// them, another image size, light that does not reach enough dots, a reprojection error far above the
/// others'.
/// @throws Exception when fewer than three views are left, naming every view with its reason, or when all
/// views
///         show the target from the same side, which leaves the focal length undetermined
Calibration calibrateScanner(std::string const& folder, CalibrationSettings const& settings);

/// The figures of a calibration: resolutions, totals, and a member a view.
nlohmann::json report(Calibration const& calibration);

/// The same as a table.
std::string table(Calibration const& calibration);

/// A picture of the reprojection errors over both devices' images, much enlarged, one colour a view.
cv::Mat plotResiduals(Calibration const& calibration);

} // namespace vorn::tools
