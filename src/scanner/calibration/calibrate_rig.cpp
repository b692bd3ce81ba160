// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/calibrate_rig.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include <opencv2/core.hpp>

#include <vorn/mv/calib/adjustment.hpp>
#include <vorn/mv/calib/calibration_covariance.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/geometry/transform.hpp>

#include "core/pieces.hpp"
#include "scanner/calibration/adjusted_views.hpp"
#include "scanner/calibration/adjustment_views.hpp"
#include "scanner/calibration/scanner_views.hpp"
#include "scanner/calibration/stereo_views.hpp"
#include "scanner/calibration/target_views.hpp"
#include "scanner/scanner_access.hpp"

namespace vorn::mv {

namespace {

constexpr std::size_t cameraCount = 2;

/// What one camera saw in all views.
struct CameraViews {
  std::vector<MeasuredView> views;
  std::vector<DecodedExtents> extents;
};

/// Runs a part of the work, whose failures are then about a pair of devices.
template <class Work>
auto ofPair(char const* pair, Work const& work) {
  try {
    return work();
  } catch (Cancelled const&) {
    throw;
  } catch (Exception const& e) {
    throw calibrationFailure(std::string(pair) + ": " + e.message());
  }
}

CameraViews measureCamera(std::vector<std::string> const& names, RigViewSource const& view,
                          std::size_t camera, CalibrationSettings const& settings, Progress const& progress) {
  CameraViews result;
  result.extents.resize(names.size());
  result.views = measureViews(names, progress, 1 + scannerViewSteps,
                              [&](std::size_t number, MeasuredView& measured, ViewSteps& steps) {
                                steps.begin("reading views");
                                measureScannerView(view(number, camera), settings, measured,
                                                   result.extents[number], steps);
                              });
  return result;
}

/// The projector as both cameras saw it.
cv::Size guessProjector(std::array<CameraViews, cameraCount> const& cameras) {
  std::vector<CalibratedView> views;
  std::vector<DecodedExtents> extents;
  for (CameraViews const& camera : cameras) {
    for (MeasuredView const& view : camera.views) {
      views.push_back(view.result);
    }
    extents.insert(extents.end(), camera.extents.begin(), camera.extents.end());
  }
  return guessProjector(views, extents);
}

/// The settings of one camera with the projector.
CalibrationSettings settingsOf(std::size_t camera, CalibrationSettings settings) {
  if (camera > 0) {
    settings.camera = settings.camera1;
    settings.adjustment.holdCamera0 = settings.adjustment.holdCamera1;
  }
  settings.camera1.reset();
  settings.adjustment.holdCamera1 = false;
  return settings;
}

ScannerCalibration calibrateScanner(CameraViews const& camera, cv::Size const& projector,
                                    CalibrationSettings const& settings, Progress const& progress) {
  ScannerViews views;
  for (MeasuredView const& view : camera.views) {
    views.names.push_back(view.result.name);
  }
  views.measure = [&](std::size_t number, MeasuredView& view, ViewSteps& steps) {
    steps.begin("calibrating");
    view = camera.views[number];
  };
  views.projector = [&](std::vector<CalibratedView> const& /*views*/) { return projector; };
  PartObserver observer(progress);
  return calibrateScanner(views, settings, observer.ifWatched());
}

/// What one camera gives for a view of both, of which it must tell where the dots count from.
void addCamera(MeasuredView& view, MeasuredView const& seen, char const* camera) {
  if (seen.result.devices.empty() || seen.result.devices[0].imgPnts.empty()) {
    throw calibrationFailure(std::string(camera) + " camera: " + seen.result.reason);
  }
  if (seen.readings == 0) {
    throw calibrationFailure("the marker dots are not in view in the " + std::string(camera) +
                             " camera's image");
  }
  view.result.devices.push_back(seen.result.devices[0]);
  view.sizes.push_back(seen.sizes[0]);
}

StereoCalibration calibratePair(std::array<CameraViews, cameraCount> const& cameras,
                                CalibrationSettings const& settings, Progress const& progress) {
  std::vector<MeasuredView> views;
  std::vector<int> readings;
  for (std::size_t i = 0; i < cameras[0].views.size(); ++i) {
    MeasuredView const& seen0 = cameras[0].views[i];
    MeasuredView const& seen1 = cameras[1].views[i];
    MeasuredView view;
    view.result.name = seen0.result.name;
    try {
      addCamera(view, seen0, "first");
      addCamera(view, seen1, "second");
    } catch (Exception const& e) {
      view.result.reason = e.message();
    }
    views.push_back(std::move(view));
    readings.push_back(std::max(seen0.readings, seen1.readings));
    views.back().result.readings = seen0.readings;
  }
  return calibrateMeasured(std::move(views), readings, settings, progress);
}

RigClosure closureOf(RigCalibration const& rig) {
  cv::Matx44d const round = rig.scanner.object.getTransform().inv() * rig.pair.object.getTransform() *
                            rig.second.object.getTransform();
  double const cosine = (cv::trace(math::getR3(round)) - 1) / 2;
  return {std::acos(std::clamp(cosine, -1.0, 1.0)), cv::norm(math::getT3(round))};
}

/// @throws Exception when the three pairs of devices are of no one rig
void requireClosed(RigCalibration const& rig) {
  constexpr double mostTurn = 0.5 * CV_PI / 180;
  constexpr double mostShift = 0.02; // of the way from the cameras to the projector
  double const base = std::max({cv::norm(math::getT3(rig.scanner.object.getTransform())),
                                cv::norm(math::getT3(rig.second.object.getTransform())),
                                cv::norm(math::getT3(rig.pair.object.getTransform()))});
  RigClosure const& closure = rig.closure;
  if (closure.turn > mostTurn || closure.shift > mostShift * base) {
    throw calibrationFailure(
        "The two cameras and the projector do not fit together: from the projector to the first camera, the "
        "second and back it ends turned by " +
        std::to_string(closure.turn * 180 / CV_PI) + " degrees and shifted by " +
        std::to_string(closure.shift) +
        " mm. A device was moved, or the views of the two cameras are not of the same poses");
  }
}

/// The dots that the camera of a view sees.
AdjustmentView seenByCamera(AdjustmentView const& view) {
  AdjustmentView seen;
  seen.name = view.name;
  for (std::size_t i = 0; i < view.objPnts.size(); ++i) {
    if (std::isfinite(view.points0[i].x)) {
      seen.objPnts.push_back(view.objPnts[i]);
      seen.points0.push_back(view.points0[i]);
      seen.points1.push_back(view.points1[i]);
      if (!view.sigmas1.empty()) {
        seen.sigmas1.push_back(view.sigmas1[i]);
      }
    }
  }
  return seen;
}

/// The views of camera 1 and the projector as camera 0 would have seen them: each dot's pixel is carried over
/// through the target's plane, with what it is off by.
std::vector<AdjustmentView> carriedViews(RigCalibration const& rig, double noise) {
  CameraModel const& camera0 = rig.pair.object.getCameraModel0();
  CameraModel const& camera1 = rig.pair.object.getCameraModel1();
  std::vector<AdjustmentView> views = adjustmentViews(rig.second.views);
  for (AdjustmentView& view : views) {
    view = seenByCamera(view);
    cv::Matx44d const cam1_from_target = camera1.estimate(view.points0, view.objPnts);
    cv::Matx44d const cam0_from_target = rig.pair.object.getTransform() * cam1_from_target;
    std::vector<cv::Point3f> const onTarget = camera1.calcObjectPoints(view.points0, cam1_from_target);
    view.points0 = camera0.calcImagePoints(onTarget, cam0_from_target);
    view.name += " (second camera)";
    view.sigmas.assign(view.points0.size(), static_cast<float>(noise));
  }
  return views;
}

/// All that both cameras see of the projector's light.
std::vector<AdjustmentView> projectorViews(RigCalibration const& rig) {
  std::vector<AdjustmentView> views = adjustmentViews(rig.scanner.views);
  // Noises as the pair of cameras shows them; only their ratio counts.
  AdjustmentNoise const noise =
      rig.pair.report.adjustment ? rig.pair.report.adjustment->noise : AdjustmentNoise{1, 1};
  bool const isKnown = noise.camera0 > 0 && noise.camera1 > 0;
  for (AdjustmentView& view : views) {
    view.sigmas.assign(view.points0.size(), static_cast<float>(isKnown ? noise.camera0 : 1));
  }
  std::vector<AdjustmentView> const more = carriedViews(rig, isKnown ? noise.camera1 : 1);
  views.insert(views.end(), more.begin(), more.end());
  return views;
}

/// The error of a device over all used views, as the report tells it.
DeviceReport reportOf(DeviceReport report, CameraModel const& model, std::vector<CalibratedView> const& views,
                      std::size_t device) {
  std::vector<cv::Point2f> residuals;
  for (CalibratedView const& view : views) {
    if (view.isUsed()) {
      auto const& own = view.devices[device].residuals;
      residuals.insert(residuals.end(), own.begin(), own.end());
    }
  }
  report.rms = rms(residuals);
  report.isCalibrated = model.isCalibrated();
  return report;
}

/// Gives a scanner the devices of the rig, and its views their residuals.
void take(ScannerCalibration& calibration, CameraModel const& camera, CameraModel const& projector,
          cv::Matx44d const& cam_from_proj, Progress const& progress) {
  CalibrationCovariance const covariance = calibration.object.getCovariance();
  calibration.object.getCameraModel() = camera;
  calibration.object.getProjectorModel() = projector;
  calibration.object.setTransform(cam_from_proj);
  if (!covariance.isEmpty()) {
    calibration.object.setCovariance(covariance);
  }
  cv::Matx44d const proj_from_cam = cam_from_proj.inv();
  for (CalibratedView& view : calibration.views) {
    if (view.isUsed()) {
      ViewPoints& seen = view.devices[0];
      ViewPoints& lit = view.devices[1];
      cv::Matx44d const cam_from_target = camera.estimate(seen.imgPnts, seen.objPnts);
      seen.residuals = residualsOf(seen, camera, cam_from_target);
      lit.residuals = residualsOf(lit, projector, proj_from_cam * cam_from_target);
    }
  }
  std::array<CameraModel const*, 2> const models = {&camera, &projector};
  for (std::size_t device = 0; device < models.size(); ++device) {
    DeviceReport& report = calibration.report.devices[device];
    report = reportOf(report, *models[device], calibration.views, device);
  }
  if (calibration.object.isCalibrated()) {
    ScannerAccess::triangulationSetup(calibration.object, progress);
  }
}

/// Adjusts the projector to what both cameras see of it, and gives all three objects the same devices.
void joinRig(RigCalibration& rig, CalibrationSettings const& settings, Progress const& progress) {
  StereoCamera const& cameras = rig.pair.object;
  AdjustmentSettings how = settings.adjustment;
  how.holdCamera0 = true;
  how.holdCamera1 = false;
  PartObserver observer(progress.part(0, 0.8));
  Adjustment const joint = adjustScanner(
      projectorViews(rig), cameras.getCameraModel0(),
      static_cast<Sl3dScanner const&>(rig.scanner.object).getProjectorModel(), how, observer.ifWatched());
  cv::Matx44d const cam0_from_cam1 = cameras.getTransform();
  take(rig.scanner, cameras.getCameraModel0(), joint.models[1], joint.transform, progress.part(0.8, 0.9));
  take(rig.second, cameras.getCameraModel1(), joint.models[1], cam0_from_cam1.inv() * joint.transform,
       progress.part(0.9, 1));
  rig.second.object.setPose(cam0_from_cam1);
}

void requireAdjusted(Calibration const& calibration) {
  if (!calibration.report.adjustment) {
    throw calibrationFailure("the views cannot be adjusted together: " + calibration.report.notAdjusted);
  }
}

} // namespace

RigCalibration calibrateRig(std::vector<std::string> const& names, RigViewSource const& view,
                            CalibrationSettings const& settings, Observer* observer) {
  Library::assertValid();
  settings.check();
  if (!settings.isAdjusted) {
    throw calibrationFailure("Two cameras and a projector are calibrated together: isAdjusted must be set");
  }
  Progress const progress(observer);
  std::array<CameraViews, cameraCount> const cameras = {
      measureCamera(names, view, 0, settings, progress.part(0.0, 0.4)),
      measureCamera(names, view, 1, settings, progress.part(0.4, 0.8))};
  cv::Size const projector = settings.projector.empty() ? guessProjector(cameras) : settings.projector;
  RigCalibration rig;
  auto const scannerOf = [&](std::size_t camera, Progress const& part) {
    ScannerCalibration scanner =
        calibrateScanner(cameras[camera], projector, settingsOf(camera, settings), part);
    requireAdjusted(scanner);
    return scanner;
  };
  rig.scanner = ofPair("first camera and projector", [&] { return scannerOf(0, progress.part(0.80, 0.85)); });
  rig.second = ofPair("second camera and projector", [&] { return scannerOf(1, progress.part(0.85, 0.90)); });
  rig.pair = ofPair("both cameras", [&] {
    StereoCalibration pair = calibratePair(cameras, settings, progress.part(0.90, 0.95));
    requireAdjusted(pair);
    return pair;
  });
  rig.closure = closureOf(rig);
  requireClosed(rig);
  joinRig(rig, settings, progress.part(0.95, 1.0));
  return rig;
}

RigCalibration calibrateRig(std::vector<RigView> const& views, CalibrationSettings const& settings,
                            Observer* observer) {
  return calibrateRig(
      namesOf(views),
      [&](std::size_t number, std::size_t camera) {
        if (views[number].cameras.size() != cameraCount) {
          throw calibrationFailure("it has images of " + std::to_string(views[number].cameras.size()) +
                                   " cameras, and a rig has two");
        }
        return views[number].cameras[camera];
      },
      settings, observer);
}

} // namespace vorn::mv
