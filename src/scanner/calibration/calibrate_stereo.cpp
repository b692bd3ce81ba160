// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/calibrate_stereo.hpp>

#include <algorithm>
#include <utility>

#include <vorn/mv/calib/calibration_covariance.hpp>
#include <vorn/mv/calib/camera_calib_data.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/core/library.hpp>

#include "scanner/calibration/adjusted_views.hpp"
#include "scanner/calibration/mirrored_views.hpp"
#include "scanner/calibration/stereo_views.hpp"
#include "scanner/calibration/target_turns.hpp"
#include "scanner/calibration/target_views.hpp"

namespace vorn::mv {

namespace {

/// How far each camera's views miss when the other camera's pose is carried over by the transform.
void fillJointResiduals(std::vector<CalibratedView>& views, StereoCamera const& stereo,
                        CameraCalibData const& data0, CameraCalibData const& data1) {
  cv::Matx44d const& cam0_from_cam1 = stereo.getTransform();
  cv::Matx44d const cam1_from_cam0 = cam0_from_cam1.inv();
  int number = 0;
  for (CalibratedView& view : views) {
    if (view.isUsed()) {
      auto const joint = [&](std::size_t device, CameraModel const& model, cv::Matx44d const& pose) {
        view.devices[device].jointResiduals = residualsOf(view.devices[device], model, pose);
      };
      joint(0, stereo.getCameraModel0(), cam0_from_cam1 * data1.getPose(number));
      joint(1, stereo.getCameraModel1(), cam1_from_cam0 * data0.getPose(number));
      ++number;
    }
  }
}

std::vector<std::string> const labels = {"first camera's image", "second camera's image"};

/// In how many ways both cameras may have counted the target's dots differently.
int measure(StereoView const& view, CalibrationSettings const& settings, MeasuredView& measured,
            ViewSteps& steps) {
  if (view.images.size() != labels.size()) {
    throw calibrationFailure("it has " + std::to_string(view.images.size()) + " images, one a camera makes " +
                             std::to_string(labels.size()));
  }
  int readings = 1;
  for (std::size_t c = 0; c < labels.size(); ++c) {
    steps.begin("detecting targets");
    readings =
        std::max(readings, findCountedTarget(measured, view.images[c], labels[c], settings, steps.now()));
  }
  return readings;
}

} // namespace

StereoCalibration calibrateStereo(std::vector<std::string> const& names, StereoViewSource const& view,
                                  CalibrationSettings const& settings, Observer* observer) {
  Library::assertValid();
  settings.check();
  Progress const progress(observer);
  constexpr std::size_t stepsPerView = 3;
  std::vector<int> readings(names.size(), 1);
  std::vector<MeasuredView> measured =
      measureViews(names, progress.part(0.0, 0.9), stepsPerView,
                   [&](std::size_t number, MeasuredView& result, ViewSteps& steps) {
                     steps.begin("reading views");
                     readings[number] = measure(view(number), settings, result, steps);
                   });
  return calibrateMeasured(std::move(measured), readings, settings, progress.part(0.9, 1.0));
}

StereoCalibration calibrateMeasured(std::vector<MeasuredView> measured, std::vector<int> const& readings,
                                    CalibrationSettings const& settings, Progress const& progress) {
  StereoCalibration calibration;
  std::vector<cv::Size> sizes;
  calibration.views = agreeOnSizes(std::move(measured), labels, sizes);
  if (settings.target) {
    countAlike(calibration.views, readings, *settings.target, sizes);
  }
  cv::Matx44d meanTransform;
  auto const calibrateUsed = [&] {
    CameraCalibData data0;
    CameraCalibData data1;
    StereoCamera stereo;
    do {
      progress.at("calibrating", 0.0);
      data0 = calibData(calibration.views, 0);
      data1 = calibData(calibration.views, 1);
      stereo = StereoCamera();
      stereo.setResolution(sizes[0], sizes[1]);
      stereo.calib(data0, data1);
      requireDifferentSides(data0);
    } while (leaveOutMirrored(calibration, settings, data0, data1));
    fillResiduals(calibration.views, 0, stereo.getCameraModel0(), data0);
    fillResiduals(calibration.views, 1, stereo.getCameraModel1(), data1);
    fillJointResiduals(calibration.views, stereo, data0, data1);
    meanTransform = stereo.getTransform();
    calibration.object = stereo;
  };
  calibrateViews(calibration.views, {"camera", "camera_1"}, settings, calibrateUsed);
  nameMirrored(calibration, {calibration.object.getCameraModel0(), calibration.object.getCameraModel1()});
  adjustViews(
      calibration, settings,
      {[&](std::vector<AdjustmentView> const& adjusted, AdjustmentSettings const& how, Observer* watch) {
         StereoCamera const& stereo = calibration.object;
         return adjustStereo(adjusted, startOf(settings.camera, stereo.getCameraModel0()),
                             startOf(settings.camera1, stereo.getCameraModel1()), how, watch);
       },
       calibrateUsed,
       [&](Adjustment const& adjustment, std::vector<AdjustmentView> const& /*views*/) {
         StereoCamera& object = calibration.object;
         object.setCameraModels(adjustment.models[0], adjustment.models[1]);
         object.setTransform(adjustment.transform);
         object.setCovariance(covarianceOf(adjustment));
         if (object.isCalibrated()) {
           object.calcUndistortedMaps();
         }
       }},
      progress.part(0.5, 1.0));
  StereoCamera const& stereo = calibration.object;
  calibration.report.devices = {deviceReport("camera", stereo.getCameraModel0(), calibration.views, 0),
                                deviceReport("camera_1", stereo.getCameraModel1(), calibration.views, 1)};
  calibration.report.rotationDefect = agreedRotationDefect(meanTransform);
  progress.at("calibrating", 1.0);
  return calibration;
}

StereoCalibration calibrateStereo(std::vector<StereoView> const& views, CalibrationSettings const& settings,
                                  Observer* observer) {
  return calibrateStereo(
      namesOf(views), [&](std::size_t number) { return views[number]; }, settings, observer);
}

} // namespace vorn::mv
