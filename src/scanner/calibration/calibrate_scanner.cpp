// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/calibrate_scanner.hpp>

#include <algorithm>
#include <iterator>

#include <vorn/mv/calib/calibration_covariance.hpp>
#include <vorn/mv/calib/camera_calib_data.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/sl/decode_patterns.hpp>
#include <vorn/mv/sl/projector_points.hpp>

#include "core/median.hpp"
#include "scanner/calibration/adjusted_views.hpp"
#include "scanner/calibration/board_words.hpp"
#include "scanner/calibration/mirrored_views.hpp"
#include "scanner/calibration/scanner_views.hpp"
#include "scanner/calibration/target_views.hpp"
#include "scanner/findings/sequence_doubts.hpp"
#include "scanner/findings/view_images.hpp"
#include "scanner/projector_axis.hpp"
#include "scanner/scanner_access.hpp"

namespace vorn::mv {

namespace {

/// Projector points from which on a view says something about the projector.
constexpr std::size_t leastProjectorPoints = 20;

void requireSize(std::vector<cv::Mat> const& images, cv::Size const& expected, char const* name) {
  if (!images.empty() && images.front().size() != expected) {
    throw calibrationFailure(std::string("the images of the ") + name + " are " +
                             sizeText(images.front().size()) + ", the target image " + sizeText(expected));
  }
}

constexpr std::size_t stepsPerView = 1 + scannerViewSteps; // and reading it

/// No dot is twice as exact as the middle one: what says so is pixels that happen to agree, such as clipped
/// ones.
void boundSigmas(std::vector<cv::Point2f>& sigmas) {
  for (float cv::Point2f::*const axis : {&cv::Point2f::x, &cv::Point2f::y}) {
    std::vector<float> all;
    std::transform(sigmas.begin(), sigmas.end(), std::back_inserter(all),
                   [axis](cv::Point2f const& both) { return both.*axis; });
    float const least = 0.5F * medianAmong(all);
    for (cv::Point2f& both : sigmas) {
      both.*axis = std::max(both.*axis, least);
    }
  }
}

/// Nothing where the devices do not both see the volume, or the error is not calibrated.
std::optional<PredictedError> predictedError(Sl3dScanner const& scanner, WorkingVolume const& volume) {
  try {
    return PointUncertainty(scanner).over(volume);
  } catch (Exception const&) {
    return std::nullopt;
  }
}

/// Half its depth more at both ends, or at the near one as much as there is before the camera.
WorkingVolume twiceAsDeep(WorkingVolume const& volume) {
  double const half = std::min((volume.farthest - volume.nearest) / 2, volume.nearest / 2);
  return {volume.nearest - half, volume.farthest + half};
}

/// Adds the next view to a report, or why there is none.
void findNextView(Adjustment const& adjustment, std::vector<AdjustmentView> const& views,
                  Sl3dScanner const& scanner, CalibrationReport& report) {
  NextViewSettings settings;
  settings.scannerType = scanner.scannerType();
  report.nextView.reset();
  report.noNextView.clear();
  try {
    report.nextView = nextBestView(adjustment, views, settings);
  } catch (Exception const& e) {
    report.noNextView = e.message();
  }
}

/// @param figures of the sequence, where they are known
/// @throws Exception that says in what the images of a sequence contradict each other
void requireSound(ProjectorAxis const& axis, sl::GreyStack const& stack, cv::Size const& projector,
                  SequenceFigures const* figures) {
  bool const isColumn = axis.type == columnAxis.type;
  std::vector<PatternDoubt> const doubts =
      sequenceDoubts(stack, isColumn ? PatternAxis::Column : PatternAxis::Row,
                     codedAxis(axis, stack.images.size(), projector));
  // Light that changes, and columns exchanged with rows, have findings of their own, which see more views; so
  // have bands, which pass for steps that contradict each other.
  bool const areBands = figures != nullptr && isBanded(*figures);
  auto const contradiction =
      std::find_if(doubts.begin(), doubts.end(), [areBands](PatternDoubt const& doubt) {
        return (doubt.fault == PatternFault::Steps && !areBands) || doubt.fault == PatternFault::Stripes;
      });
  if (contradiction != doubts.end()) {
    throw calibrationFailure(contradiction->text);
  }
}

} // namespace

void measureScannerView(ScannerView const& view, CalibrationSettings const& settings, MeasuredView& measured,
                        DecodedExtents& extents, ViewSteps& steps) {
  steps.begin("detecting targets");
  findTarget(measured, view.target, "target image", settings, steps.now());
  requireSize(view.columns, view.target.size(), columnAxis.name);
  requireSize(view.rows, view.target.size(), rowAxis.name);
  steps.begin("decoding columns");
  sl::GreyStack const columnStack = sl::greyStack(view.columns, settings.whiteLevel);
  cv::Mat_<float> const columns = decodeAxis(columnAxis, columnStack, settings.projector, steps.now());
  steps.begin("decoding rows");
  sl::GreyStack const rowStack = sl::greyStack(view.rows, settings.whiteLevel);
  cv::Mat_<float> const rows = decodeAxis(rowAxis, rowStack, settings.projector, steps.now());
  extents = {{farthestOf(columns), view.columns.size()}, {farthestOf(rows), view.rows.size()}};
  std::optional<ViewFigures> figures; // which tell nothing of images that contradict each other
  if (settings.isAdjusted) {
    figures =
        figuresOf({view.target, columnStack, rowStack}, columns, rows, measured.result.devices[0].imgPnts);
  }
  requireSound(columnAxis, columnStack, settings.projector, figures ? &figures->columns : nullptr);
  requireSound(rowAxis, rowStack, settings.projector, figures ? &figures->rows : nullptr);
  measured.result.figures = figures;
  measured.result.devices.push_back(
      projectorPoints(measured.result.devices[0], {view.target, columns, rows}, settings));
}

cv::Size guessProjector(std::vector<CalibratedView> const& views,
                        std::vector<DecodedExtents> const& extents) {
  DecodedExtents all;
  for (std::size_t i = 0; i < views.size(); ++i) {
    if (views[i].isUsed()) {
      all.columns.add(extents[i].columns);
      all.rows.add(extents[i].rows);
    }
  }
  return guessProjector(all.columns, all.rows);
}

ViewPoints projectorPoints(ViewPoints const& camera, DecodedTarget const& decoded,
                           CalibrationSettings const& settings) {
  std::vector<cv::Point2f> points;
  std::vector<cv::Point2f> sigmas;
  std::vector<std::uint8_t> valid;
  bool const areCorners = hasCorners(settings);
  if (areCorners) {
    find_projector_corners(decoded.columns, decoded.rows, decoded.image, camera.imgPnts, points, sigmas,
                           valid);
  } else {
    find_projector_points(decoded.columns, decoded.rows, camera.imgPnts, points, sigmas, valid);
  }
  ViewPoints projector;
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (valid[i] != 0) {
      projector.imgPnts.push_back(points[i]);
      projector.objPnts.push_back(camera.objPnts[i]);
      projector.sigmas.push_back(sigmas[i]);
    }
  }
  boundSigmas(projector.sigmas);
  if (projector.imgPnts.size() < leastProjectorPoints) {
    std::string const count =
        std::to_string(projector.imgPnts.size()) + " of " + std::to_string(camera.imgPnts.size());
    throw calibrationFailure(areCorners ? "the projector's light is decoded around only " + count +
                                              " corners, on both white squares of each"
                                        : "the projector's light reaches only " + count + " dots");
  }
  return projector;
}

ScannerCalibration calibrateScanner(ScannerViews const& views, CalibrationSettings const& settings,
                                    Observer* observer) {
  Library::assertValid();
  settings.check();
  requireCameras(settings, 1);
  Progress const progress(observer);
  std::vector<MeasuredView> measured =
      measureViews(views.names, progress.part(0.0, 0.9), views.stepsPerView, views.measure);
  ScannerCalibration calibration;
  std::vector<cv::Size> sizes;
  calibration.views = agreeOnSizes(std::move(measured), {"target image"}, sizes);
  leaveOutMirrored(calibration, settings);
  diagnoseImagesOf(calibration, settings);
  calibration.report.isProjectorGuessed = settings.projector.empty();
  cv::Size const projector =
      settings.projector.empty() ? views.projector(calibration.views) : settings.projector;
  cv::Matx44d meanTransform;
  auto const calibrateUsed = [&] {
    progress.at("calibrating", 0.9);
    CameraCalibData cameraData = calibData(calibration.views, 0);
    CameraCalibData projectorData = calibData(calibration.views, 1);
    Sl3dScanner scanner;
    scanner.getCameraModel().setResolution(sizes[0]);
    scanner.getProjectorModel().setResolution(projector);
    ScannerAccess::calib(scanner, cameraData, projectorData);
    requireDifferentSides(cameraData);
    fillResiduals(calibration.views, 0, scanner.getCameraModel(), cameraData);
    fillResiduals(calibration.views, 1, scanner.getProjectorModel(), projectorData);
    meanTransform = scanner.getTransform();
    calibration.object = scanner;
  };
  calibrateViews(calibration.views, {"camera", "projector"}, settings, calibrateUsed);
  Sl3dScanner& object = calibration.object;
  adjustViews(
      calibration, settings,
      {[&](std::vector<AdjustmentView> const& adjusted, AdjustmentSettings const& how, Observer* watch) {
         return adjustScanner(adjusted, startOf(settings.camera, object.getCameraModel()),
                              object.getProjectorModel(), how, watch);
       },
       calibrateUsed,
       [&](Adjustment const& adjustment, std::vector<AdjustmentView> const& adjusted) {
         object.getCameraModel() = adjustment.models[0];
         object.getProjectorModel() = adjustment.models[1];
         object.setTransform(adjustment.transform);
         object.setCovariance(covarianceOf(adjustment));
         WorkingVolume const volume = workingVolume(adjustment, adjusted);
         calibration.report.predicted = predictedError(object, volume);
         calibration.report.predictedBeyond = predictedError(object, twiceAsDeep(volume));
         findNextView(adjustment, adjusted, object, calibration.report);
       }},
      progress.part(0.92, 0.95));
  calibration.report.rotationDefect = agreedRotationDefect(meanTransform);
  if (object.isCalibrated()) {
    ScannerAccess::triangulationSetup(object, progress.part(0.95, 1.0));
  }
  Sl3dScanner const& scanner = object;
  calibration.report.devices = {deviceReport("camera", scanner.getCameraModel(), calibration.views, 0),
                                deviceReport("projector", scanner.getProjectorModel(), calibration.views, 1)};
  progress.at("calibrating", 1.0);
  return calibration;
}

ScannerCalibration calibrateScanner(std::vector<std::string> const& names, ScannerViewSource const& view,
                                    CalibrationSettings const& settings, Observer* observer) {
  std::vector<DecodedExtents> extents(names.size());
  ScannerViews views;
  views.names = names;
  views.stepsPerView = stepsPerView;
  views.measure = [&](std::size_t number, MeasuredView& result, ViewSteps& steps) {
    steps.begin("reading views");
    measureScannerView(view(number), settings, result, extents[number], steps);
  };
  views.projector = [&](std::vector<CalibratedView> const& used) { return guessProjector(used, extents); };
  return calibrateScanner(views, settings, observer);
}

ScannerCalibration calibrateScanner(std::vector<ScannerView> const& views,
                                    CalibrationSettings const& settings, Observer* observer) {
  return calibrateScanner(
      namesOf(views), [&](std::size_t number) { return views[number]; }, settings, observer);
}

} // namespace vorn::mv
