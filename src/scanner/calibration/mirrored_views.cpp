// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/calibration/mirrored_views.hpp"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "calib/adjust/view_statistics.hpp"
#include "core/median.hpp"
#include "scanner/calibration/adjustment_views.hpp"
#include "scanner/calibration/target_turns.hpp"
#include "scanner/calibration/target_views.hpp"

namespace vorn::mv {

namespace {

/// How the images of a view's devices do not belong together; empty when they do.
std::string disagreementOf(AdjustmentView const& view) {
  cv::Matx22d const proj_from_cam = affineMapOf(view.points0, view.points1);
  // Devices may stand turned to each other by any angle, so that all but the sign may be right.
  if (!(cv::determinant(proj_from_cam) < 0)) {
    return "";
  }
  double const straight = std::abs(proj_from_cam(0, 0)) + std::abs(proj_from_cam(1, 1));
  double const crossed = std::abs(proj_from_cam(0, 1)) + std::abs(proj_from_cam(1, 0));
  return crossed > straight ? "columns and rows are exchanged"
                            : "the images of the camera or of the projector are mirrored";
}

/// Where the second camera stands to the first by one view: as its images show it, and for each way in which
/// the target may have been read in an image that is mirrored.
struct SeenTransforms {
  std::size_t number = 0; ///< among all views
  double distance = 0;    ///< from the first camera to the target
  cv::Matx44d asShown;
  std::vector<cv::Matx44d> turnedBack;

  bool isShown(cv::Matx44d const& transform) const { return isNear(asShown, transform); }
  bool isMirrored(cv::Matx44d const& transform) const {
    return !isShown(transform) &&
           std::any_of(turnedBack.begin(), turnedBack.end(),
                       [&](cv::Matx44d const& turned) { return isNear(turned, transform); });
  }

private:
  bool isNear(cv::Matx44d const& a, cv::Matx44d const& b) const {
    constexpr double most = 0.05; // radians: many times what views of a calibration differ by
    return difference(a, b, distance) < most;
  }
};

/// How a target is read in a mirrored image: by its corner marks with columns for rows, a whole grid with its
/// columns, or rows, counted from the other end.
std::vector<cv::Matx44d> mirroredReadings(std::optional<TargetDescription> const& target) {
  std::vector<cv::Matx44d> readings = {{0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}};
  if (target && !target->size.empty()) {
    cv::Point2d const middle = middleOf(*target);
    readings.push_back({-1, 0, 0, 2 * middle.x, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
    readings.push_back({1, 0, 0, 0, 0, -1, 0, 2 * middle.y, 0, 0, 1, 0, 0, 0, 0, 1});
  }
  return readings;
}

std::vector<SeenTransforms> seenTransforms(std::vector<CalibratedView> const& views,
                                           std::optional<TargetDescription> const& target,
                                           CameraCalibData const& data0, CameraCalibData const& data1) {
  cv::Matx44d const leftRight = cv::Matx44d::diag({-1, 1, 1, 1});
  cv::Matx44d const upDown = cv::Matx44d::diag({1, -1, 1, 1});
  std::vector<SeenTransforms> all;
  for (std::size_t i = 0; i < views.size(); ++i) {
    if (!views[i].isUsed()) {
      continue;
    }
    auto const row = static_cast<int>(all.size());
    cv::Matx44d const& pose0 = data0.getPose(row);
    cv::Matx44d const& pose1 = data1.getPose(row);
    SeenTransforms seen{i, std::hypot(pose0(0, 3), pose0(1, 3), pose0(2, 3)), pose0 * pose1.inv(), {}};
    for (cv::Matx44d const& reading : mirroredReadings(target)) {
      for (cv::Matx44d const& mirror : {leftRight, upDown}) {
        seen.turnedBack.push_back(pose0 * (mirror * pose1 * reading).inv());
        seen.turnedBack.push_back(mirror * pose0 * reading * pose1.inv());
      }
    }
    all.push_back(std::move(seen));
  }
  return all;
}

/// The transform on which most views agree.
struct Agreement {
  cv::Matx44d transform;
  std::ptrdiff_t views = 0;
};

template <class Agrees>
void takeBetter(Agreement& best, cv::Matx44d const& transform, std::vector<SeenTransforms> const& seen,
                Agrees const& agrees) {
  std::ptrdiff_t const views = std::count_if(seen.begin(), seen.end(), agrees);
  if (views > best.views) {
    best = {transform, views};
  }
}

bool isSaid(std::vector<Finding> const& findings, std::size_t view) {
  return std::any_of(findings.begin(), findings.end(), [view](Finding const& finding) {
    return finding.cause == FindingCause::Mirrored && finding.view == static_cast<int>(view);
  });
}

/// How far a view's points are from where a device shows the target, its image turned back along an axis.
double errorTurnedBack(ViewPoints points, CameraModel const& model, int axis) {
  cv::Size const size = model.getResolution();
  for (std::size_t i = 0; i < points.imgPnts.size(); ++i) {
    cv::Point2f& pixel = points.imgPnts[i];
    (axis == 0 ? pixel.x : pixel.y) =
        static_cast<float>(axis == 0 ? size.width : size.height) - 1 - (axis == 0 ? pixel.x : pixel.y);
    points.objPnts[i].y *= -1; // seen from the other side
  }
  return rms(residualsOf(points, model, model.estimate(points.imgPnts, points.objPnts)));
}

} // namespace

bool leaveOutMirrored(Calibration& calibration, CalibrationSettings const& settings,
                      CameraCalibData const& data0, CameraCalibData const& data1) {
  std::vector<SeenTransforms> const seen = seenTransforms(calibration.views, settings.target, data0, data1);
  Agreement shown;
  Agreement turned;
  for (SeenTransforms const& view : seen) {
    takeBetter(shown, view.asShown, seen,
               [&](SeenTransforms const& other) { return other.isShown(view.asShown); });
    for (cv::Matx44d const& transform : view.turnedBack) {
      takeBetter(turned, transform, seen,
                 [&](SeenTransforms const& other) { return other.isMirrored(transform); });
    }
  }
  auto const count = static_cast<std::ptrdiff_t>(seen.size());
  std::string const advice = adviceOf(FindingCause::Mirrored);
  if (2 * shown.views < count && 2 * turned.views >= count) {
    throw calibrationFailure("The images of one of the two cameras are mirrored in " +
                             std::to_string(turned.views) + " of " + std::to_string(count) +
                             " views: turned back, they agree on where the cameras stand. " + advice);
  }
  bool isAnyLeftOut = false;
  for (SeenTransforms const& view : seen) {
    if (2 * shown.views < count || !view.isMirrored(shown.transform) ||
        isSaid(calibration.report.findings, view.number)) {
      continue;
    }
    CalibratedView& result = calibration.views[view.number];
    std::string const fault = "the image of one of the two cameras is mirrored";
    calibration.report.findings.push_back({FindingCause::Mirrored, static_cast<int>(view.number), -1, -1, 0,
                                           result.name + ": " + fault, advice, true});
    if (std::isfinite(settings.outlierRatio)) {
      result.reason = fault;
      isAnyLeftOut = true;
    }
  }
  if (isAnyLeftOut) {
    requireViews(calibration.views);
  }
  return isAnyLeftOut;
}

void nameMirrored(Calibration& calibration, std::vector<CameraModel> const& models) {
  for (std::size_t device = 0; device < models.size(); ++device) {
    std::vector<double> usual;
    for (CalibratedView const& view : calibration.views) {
      if (view.isUsed()) {
        usual.push_back(rms(view.devices[device].residuals));
      }
    }
    for (std::size_t i = 0; i < calibration.views.size() && !usual.empty(); ++i) {
      CalibratedView& view = calibration.views[i];
      bool const isMeasured = view.devices.size() > device && !view.devices[device].residuals.empty();
      if (view.isUsed() || !isMeasured || isSaid(calibration.report.findings, i)) {
        continue;
      }
      ViewPoints const& points = view.devices[device];
      double const shown =
          rms(residualsOf(points, models[device], models[device].estimate(points.imgPnts, points.objPnts)));
      double const turned =
          std::min(errorTurnedBack(points, models[device], 0), errorTurnedBack(points, models[device], 1));
      constexpr double mostRatio = 0.5;
      constexpr double mostError = 2; // over that of the views that are used
      if (turned < mostRatio * shown && turned < mostError * medianAmong(usual)) {
        std::string const camera = models.size() == 1 ? "the camera"
                                   : device == 0      ? "the first camera"
                                                      : "the second camera";
        view.reason = "the image of " + camera + " is mirrored";
        calibration.report.findings.push_back(
            {FindingCause::Mirrored, static_cast<int>(i), static_cast<int>(device), turned / shown, mostRatio,
             view.name + ": " + view.reason, adviceOf(FindingCause::Mirrored), true});
      }
    }
  }
}

void leaveOutMirrored(Calibration& calibration, CalibrationSettings const& settings) {
  std::vector<AdjustmentView> const seen = adjustmentViews(calibration.views);
  std::string const advice = adviceOf(FindingCause::Mirrored);
  std::vector<Finding> findings;
  std::size_t number = 0;
  for (std::size_t i = 0; i < calibration.views.size(); ++i) {
    CalibratedView const& view = calibration.views[i];
    std::string const fault = view.isUsed() ? disagreementOf(seen[number++]) : "";
    if (!fault.empty()) {
      findings.push_back(
          {FindingCause::Mirrored, static_cast<int>(i), -1, -1, 0, view.name + ": " + fault, advice, true});
    }
  }
  if (!findings.empty() && 2 * findings.size() >= seen.size()) {
    throw calibrationFailure(findings.front().text + ", and so in " + std::to_string(findings.size()) +
                             " of " + std::to_string(seen.size()) + " views. " + advice);
  }
  for (Finding const& finding : findings) {
    CalibratedView& view = calibration.views[static_cast<std::size_t>(finding.view)];
    if (std::isfinite(settings.outlierRatio)) {
      view.reason = finding.text.substr(view.name.size() + 2);
    }
    calibration.report.findings.push_back(finding);
  }
}

} // namespace vorn::mv
