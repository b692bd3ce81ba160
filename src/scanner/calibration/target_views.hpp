// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/camera_calib_data.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/scanner/calibration.hpp>

#include "core/progress.hpp"

namespace vorn::mv {

/// An error of a calibration.
Exception calibrationFailure(std::string const& message);

std::string sizeText(cv::Size const& size);

/// Why each of some views does not serve: its name and the reason.
using ViewReasons = std::vector<std::pair<std::string, std::string>>;

/// The views with their reasons, those of one reason together: "pose_00, pose_02: no target; pose_01: ...".
std::string groupedText(ViewReasons const& reasons);

/// Counts the steps of views that are measured side by side.
class ViewSteps {
public:
  ViewSteps(Progress progress, std::size_t total) : progress_(std::move(progress)), total_(total) {}

  /// Says that one more step begins. @throws Cancelled
  void begin(std::string_view stage) { now(done_++).at(stage, 0.0); }

  /// To ask within a step whether the job shall stop.
  Progress now() const { return now(done_); }

private:
  Progress now(std::size_t done) const {
    double const share = static_cast<double>(done) / static_cast<double>(total_);
    return progress_.part(share, share);
  }

  Progress progress_;
  std::size_t total_;
  std::atomic<std::size_t> done_{0};
};

/// A view while it is being measured.
struct MeasuredView {
  CalibratedView result;
  /// The sizes of its images of the target, camera by camera, as far as they were read.
  std::vector<cv::Size> sizes;
  /// In how many ways the dots of the image that was searched last may be counted, as `findTarget` returns
  /// it.
  int readings = 0;
};

/// Measures views, several at a time. What `measure` throws becomes the view's reason, but for `Cancelled`.
/// @param stepsPerView how often `measure` begins a step
/// @throws Cancelled
std::vector<MeasuredView>
measureViews(std::vector<std::string> const& names, Progress const& progress, std::size_t stepsPerView,
             std::function<void(std::size_t number, MeasuredView& view, ViewSteps& steps)> const& measure);

/// The views' names.
template <class View>
std::vector<std::string> namesOf(std::vector<View> const& views) {
  std::vector<std::string> names;
  for (View const& view : views) {
    names.push_back(view.name);
  }
  return names;
}

/// Appends the points of the target in an image to the view's devices.
/// @param label what to call the image in messages
/// @return in how many ways its dots may be counted: 1 when marks or its shape fix their indices, 2 or 4 when
/// it
///         looks the same turned, 0 when indices count from the middle of what is seen
/// @throws Exception when they cannot be used, saying why; Cancelled when the observer stops it
int findTarget(MeasuredView& view, cv::Mat const& image, std::string const& label,
               CalibrationSettings const& settings, Progress const& progress);

/// As `findTarget` for devices that must count the dots from one origin.
/// @throws Exception when the origin cannot be known
int findCountedTarget(MeasuredView& view, cv::Mat const& image, std::string const& label,
                      CalibrationSettings const& settings, Progress const& progress);

/// Takes the views' results. Those whose images differ in size from the first ones with a target are left
/// out.
/// @param labels what to call each camera's image in messages
/// @param sizes (out) camera by camera
std::vector<CalibratedView> agreeOnSizes(std::vector<MeasuredView> views,
                                         std::vector<std::string> const& labels,
                                         std::vector<cv::Size>& sizes);

/// @throws Exception when fewer than three views are left, naming every view with its reason
void requireViews(std::vector<CalibratedView> const& views);

/// Calibrates, and once more without the views whose error stands out, if there are any.
/// @param calibrate fills in the residuals of the views that are used
/// @throws Exception when fewer than three views are left, naming every view with its reason
void calibrateViews(std::vector<CalibratedView>& views, std::vector<std::string> const& devices,
                    CalibrationSettings const& settings, std::function<void()> const& calibrate);

/// The points of one device in all views that are used.
CameraCalibData calibData(std::vector<CalibratedView> const& views, std::size_t device);

/// Model minus measurement, pixels.
std::vector<cv::Point2f> residualsOf(ViewPoints const& points, CameraModel const& model,
                                     cv::Matx44d const& pose);

/// Fills in the residuals of one device from the poses that its calibration found.
void fillResiduals(std::vector<CalibratedView>& views, std::size_t device, CameraModel const& model,
                   CameraCalibData const& data);

/// @throws Exception when all calibrated poses show the target from the same side, which leaves the focal
///         length undetermined
void requireDifferentSides(CameraCalibData const& data);

/// Largest deviation of R^T R from the identity, R the rotation of the transform between two devices: a mean
/// over the views, whose deviation is about the square of the angle, in radians, by which they differ.
/// @throws Exception when the views differ by degrees, so that the mean is no transform at all. A target is
///         flat, so mirrored images fit each device's model and show only here.
double agreedRotationDefect(cv::Matx44d const& transform);

/// The figures of one device.
DeviceReport deviceReport(std::string const& name, CameraModel const& model,
                          std::vector<CalibratedView> const& views, std::size_t device);

} // namespace vorn::mv
