// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/calib_pattern_detector.hpp>
#include <vorn/mv/calib/camera_calib_data.hpp>
#include <vorn/mv/calib/camera_model.hpp>

namespace vorn::tools {

/// Points of the target that one device sees in one view, and how far the calibrated model misses them.
struct ViewPoints {
  std::vector<cv::Point2f> imgPnts;
  std::vector<cv::Point2f> objPnts;
  /// Model minus measurement, pixels; after calibration.
  std::vector<cv::Point2f> residuals;
  /// The same with the pose taken from the other device and carried over by the transform between the two;
  /// where a calibration reckons it.
  std::vector<cv::Point2f> jointResiduals;
};

/// Root of the mean squared length, pixels; 0 for no residuals.
double rms(std::vector<cv::Point2f> const& residuals);

/// A laser line on the target in one view.
struct ViewLine {
  std::vector<cv::Point2f> imgPnts;
  /// Root of the mean squared distance of its points from the laser's plane, mm; after calibration.
  double planeRms = 0;
};

/// One pose of the target.
struct TargetView {
  std::string name;
  /// Why the view takes no part; empty when it does.
  std::string rejection;
  /// What is missing in a view that takes part all the same; mostly empty.
  std::string remark;
  /// The target as each device sees it; the first one is a camera.
  std::vector<ViewPoints> devices;
  /// The laser lines, where the calibration has any.
  std::vector<ViewLine> lines;

  bool isUsed() const { return rejection.empty(); }
};

/// An error of a calibration.
Exception calibrationFailure(std::string const& message);

/// Why each of some views does not serve: its name and the reason.
using ViewReasons = std::vector<std::pair<std::string, std::string>>;

/// The views with their reasons, those of one reason together: "pose_00, pose_02: no target; pose_01: ...".
std::string groupedText(ViewReasons const& reasons);

/// Reads the views of all folders pose_00, pose_01, ... in a folder or in the one it holds as "calib". What
/// `read` throws becomes the view's rejection.
std::vector<TargetView> readViews(std::string const& folder,
                                  std::function<void(std::filesystem::path const&, TargetView&)> const& read);

/// The points of the target in a picture. Only a target with its markers in view serves: an unmarked grid is
/// counted from another origin by every device.
/// @param expected the size that the picture must have; set by the first picture with a target
/// @throws Exception when they cannot be used, saying why
ViewPoints findTarget(std::filesystem::path const& picture, mv::CalibPatternDetector const& detector,
                      cv::Size& expected);

/// Calibrates, and once more without the views whose error stands out, if there are any.
/// @param calibrate fills in the residuals of the views that are used
/// @throws Exception when fewer than three views are left, naming every view with its reason
void calibrateViews(std::vector<TargetView>& views, std::vector<std::string> const& devices,
                    std::function<void()> const& calibrate);

/// The points of one device in all views that are used.
mv::CameraCalibData calibData(std::vector<TargetView> const& views, std::size_t device);

/// Fills in the residuals of one device from the poses that its calibration found.
void fillResiduals(std::vector<TargetView>& views, std::size_t device, mv::CameraModel const& model,
                   mv::CameraCalibData const& data);

/// Model minus measurement, pixels.
std::vector<cv::Point2f> residualsOf(ViewPoints const& points, mv::CameraModel const& model,
                                     cv::Matx44d const& pose);

/// @throws Exception when all calibrated poses show the target from the same side, which leaves the focal
///         length undetermined
void requireDifferentSides(mv::CameraCalibData const& data);

/// Largest deviation of R^T R from the identity, R the rotation of the transform between two devices: a mean
/// over the views, whose deviation is about the square of the angle, in radians, by which they differ.
/// @throws Exception when the views differ by degrees, so that the mean is no transform at all. A target is
///         flat, so mirrored images fit each device's model and show only here.
double agreedRotationDefect(cv::Matx44d const& transform);

} // namespace vorn::tools
