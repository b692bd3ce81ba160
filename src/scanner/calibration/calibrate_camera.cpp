// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/calibrate_camera.hpp>

#include <vorn/mv/calib/calibration_covariance.hpp>
#include <vorn/mv/calib/camera_calib_data.hpp>
#include <vorn/mv/core/library.hpp>

#include "scanner/calibration/adjusted_views.hpp"
#include "scanner/calibration/mirrored_views.hpp"
#include "scanner/calibration/target_views.hpp"

namespace vorn::mv {

CameraCalibration calibrateCamera(std::vector<std::string> const& names, CameraViewSource const& view,
                                  CalibrationSettings const& settings, Observer* observer) {
  constexpr int maxIterations = 100;
  Library::assertValid();
  settings.check();
  requireCameras(settings, 1);
  Progress const progress(observer);
  constexpr std::size_t stepsPerView = 2;
  std::vector<MeasuredView> measured =
      measureViews(names, progress.part(0.0, 0.9), stepsPerView,
                   [&](std::size_t number, MeasuredView& result, ViewSteps& steps) {
                     steps.begin("reading views");
                     CameraView const given = view(number);
                     steps.begin("detecting targets");
                     findTarget(result, given.target, "target image", settings, steps.now());
                   });
  CameraCalibration calibration;
  std::vector<cv::Size> sizes;
  calibration.views = agreeOnSizes(std::move(measured), {"target image"}, sizes);
  auto const calibrateUsed = [&] {
    progress.at("calibrating", 0.9);
    CameraCalibData data = calibData(calibration.views, 0);
    CameraModel camera;
    camera.setResolution(sizes[0]);
    camera.calib(data, maxIterations);
    requireDifferentSides(data);
    fillResiduals(calibration.views, 0, camera, data);
    calibration.object = camera;
  };
  calibrateViews(calibration.views, {"camera"}, settings, calibrateUsed);
  nameMirrored(calibration, {calibration.object});
  adjustViews(
      calibration, settings,
      {[&](std::vector<AdjustmentView> const& adjusted, AdjustmentSettings const& how, Observer* watch) {
         return adjustCamera(adjusted, startOf(settings.camera, calibration.object), how, watch);
       },
       calibrateUsed,
       [&](Adjustment const& adjustment, std::vector<AdjustmentView> const& /*views*/) {
         calibration.object = adjustment.models[0];
         calibration.object.setCovariance(covarianceOf(adjustment));
       }},
      progress.part(0.95, 1.0));
  calibration.report.devices = {deviceReport("camera", calibration.object, calibration.views, 0)};
  progress.at("calibrating", 1.0);
  return calibration;
}

CameraCalibration calibrateCamera(std::vector<CameraView> const& views, CalibrationSettings const& settings,
                                  Observer* observer) {
  return calibrateCamera(
      namesOf(views), [&](std::size_t number) { return views[number]; }, settings, observer);
}

} // namespace vorn::mv
