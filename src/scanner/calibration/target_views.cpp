// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/calibration/target_views.hpp"

#include <algorithm>
#include <cmath>
#include <locale>
#include <sstream>

#include <opencv2/core.hpp>

#include <vorn/core/observer.hpp>
#include <vorn/mv/geometry/transform.hpp>

#include "calib/target/grey_image.hpp"
#include "core/error.hpp"
#include "core/median.hpp"
#include "core/pieces.hpp"
#include "scanner/side_by_side.hpp"

namespace vorn::mv {

namespace {

constexpr std::size_t leastViews = 3;

/// Between the two most different views, degrees.
constexpr double leastTurn = 4;

std::string pixelText(double pixels) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text.precision(pixels < 1 ? 3 : 1);
  text << std::fixed << pixels << " px";
  return text.str();
}

/// Leaves out views whose error stands out. Returns whether there were any.
bool rejectOutliers(std::vector<CalibratedView>& views, std::vector<std::string> const& devices,
                    CalibrationSettings const& settings) {
  bool isAnyRejected = false;
  for (std::size_t device = 0; device < devices.size(); ++device) {
    std::vector<double> errors;
    for (CalibratedView const& view : views) {
      if (view.isUsed()) {
        errors.push_back(rms(view.devices[device].residuals));
      }
    }
    if (errors.empty()) {
      break;
    }
    double const most = std::max(settings.outlierError, settings.outlierRatio * medianAmong(errors));
    for (CalibratedView& view : views) {
      double const error = view.isUsed() ? rms(view.devices[device].residuals) : 0;
      if (error > most) {
        view.reason = "the " + devices[device] + "'s reprojection error is " + pixelText(error);
        isAnyRejected = true;
      }
    }
  }
  return isAnyRejected;
}

/// The largest angle between the target's normals in two views, degrees.
double largestTurn(CameraCalibData const& data) {
  double least = 1;
  for (int i = 0; i < data.count(); ++i) {
    for (int j = 0; j < i; ++j) {
      cv::Matx44d const& a = data.getPose(i);
      cv::Matx44d const& b = data.getPose(j);
      least = std::min(least, a(0, 2) * b(0, 2) + a(1, 2) * b(1, 2) + a(2, 2) * b(2, 2));
    }
  }
  return std::acos(std::clamp(least, -1.0, 1.0)) * 180.0 / CV_PI;
}

int findByDetector(ViewPoints& points, cv::Mat const& image, std::string const& label,
                   CalibPatternDetector const& detector, Observer* observer) {
  // The detector itself takes 8 bits alone.
  cv::Mat const bytes = image.depth() == CV_8U ? image : greyImage(image, "calibrate").bytes;
  CalibPatternDetector::Result const found = detector.detect(bytes, observer);
  if (found.isEmpty()) {
    throw calibrationFailure("no target found in the " + label +
                             ", or fewer than MinKeypointCount dots of MinDotArea to MaxDotArea pixels");
  }
  points.imgPnts = found.getImgPnts();
  points.objPnts = found.getObjPnts();
  return found.isOriginMarked() ? 1 : 0;
}

/// Finds the described target, or a part of a target with corner marks in which these are not seen.
Detection detectAnyPart(cv::Mat const& image, CalibrationSettings const& settings, Observer* observer) {
  Detection found = detectTarget(image, *settings.target, settings.detect, observer);
  if (found.isEmpty() && settings.target->hasCornerMarks()) {
    TargetDescription part = *settings.target;
    part.size = cv::Size();
    Detection unmarked = detectTarget(image, part, settings.detect, observer);
    return unmarked.isEmpty() ? found : unmarked;
  }
  return found;
}

int findDescribed(ViewPoints& points, cv::Mat const& image, std::string const& label,
                  CalibrationSettings const& settings, Observer* observer) {
  Detection const found = detectAnyPart(image, settings, observer);
  if (found.isEmpty()) {
    throw calibrationFailure("no target found in the " + label + ": " + found.reason);
  }
  if (found.readings != 1 && !settings.target->deviations.empty()) {
    throw calibrationFailure(
        "the target's deviations belong to points that cannot be told apart in the " + label + ": " +
        (found.readings == 0 ? "its marks are not in view" : "it looks the same turned"));
  }
  for (CalibKeyPoint const& point : found.keyPoints) {
    points.imgPnts.push_back(point.imgPnt);
    points.objPnts.push_back(point.objPnt);
  }
  return found.readings;
}

} // namespace

Exception calibrationFailure(std::string const& message) {
  return error(message, "calibrate");
}

std::string sizeText(cv::Size const& size) {
  return std::to_string(size.width) + " x " + std::to_string(size.height);
}

std::string groupedText(ViewReasons const& reasons) {
  ViewReasons groups; // names in place of one name
  for (auto const& view : reasons) {
    auto const same = std::find_if(groups.begin(), groups.end(),
                                   [&](auto const& group) { return group.second == view.second; });
    if (same == groups.end()) {
      groups.push_back(view);
    } else {
      same->first += ", " + view.first;
    }
  }
  std::string text;
  for (auto const& [names, reason] : groups) {
    text += (text.empty() ? "" : "; ") + names + ": " + reason;
  }
  return text;
}

void requireViews(std::vector<CalibratedView> const& views) {
  ViewReasons rejected;
  for (CalibratedView const& view : views) {
    if (!view.isUsed()) {
      rejected.emplace_back(view.name, view.reason);
    }
  }
  std::size_t const usable = views.size() - rejected.size();
  if (usable < leastViews) {
    throw calibrationFailure("Only " + std::to_string(usable) + " of " + std::to_string(views.size()) +
                             " views can be used, and a calibration takes " + std::to_string(leastViews) +
                             (rejected.empty() ? "" : "; ") + groupedText(rejected));
  }
}

std::vector<MeasuredView>
measureViews(std::vector<std::string> const& names, Progress const& progress, std::size_t stepsPerView,
             std::function<void(std::size_t, MeasuredView&, ViewSteps&)> const& measure) {
  std::vector<MeasuredView> views(names.size());
  ViewSteps steps(progress, names.size() * stepsPerView);
  forEachSideBySide(names.size(), [&](std::size_t number) {
    MeasuredView& view = views[number];
    view.result.name = names[number];
    try {
      measure(number, view, steps);
    } catch (Cancelled const&) {
      throw;
    } catch (Exception const& e) {
      view.result.reason = e.message();
    } catch (cv::Exception const& e) {
      view.result.reason = e.err;
    }
  });
  return views;
}

int findTarget(MeasuredView& view, cv::Mat const& image, std::string const& label,
               CalibrationSettings const& settings, Progress const& progress) {
  if (image.empty()) {
    throw calibrationFailure("there is no " + label);
  }
  view.sizes.push_back(image.size());
  view.result.devices.emplace_back();
  ViewPoints& points = view.result.devices.back();
  PartObserver observer(progress);
  int const readings = settings.target
                           ? findDescribed(points, image, label, settings, observer.ifWatched())
                           : findByDetector(points, image, label, settings.detector, observer.ifWatched());
  view.result.isCounted = view.result.isCounted && readings != 0;
  if (view.result.devices.size() == 1) {
    view.result.readings = readings;
  }
  view.readings = readings;
  return readings;
}

int findCountedTarget(MeasuredView& view, cv::Mat const& image, std::string const& label,
                      CalibrationSettings const& settings, Progress const& progress) {
  int const readings = findTarget(view, image, label, settings, progress);
  // Counted from the middle of what is seen, every device would have another origin.
  if (readings == 0) {
    throw calibrationFailure("the marker dots are not in view in the " + label);
  }
  return readings;
}

std::vector<CalibratedView> agreeOnSizes(std::vector<MeasuredView> views,
                                         std::vector<std::string> const& labels,
                                         std::vector<cv::Size>& sizes) {
  sizes.assign(labels.size(), cv::Size());
  std::vector<CalibratedView> results;
  for (MeasuredView& view : views) {
    for (std::size_t c = 0; c < view.sizes.size(); ++c) {
      if (!sizes[c].empty() && view.sizes[c] != sizes[c]) {
        view.result.reason = "the " + labels[c] + " is " + sizeText(view.sizes[c]) + ", the first view's " +
                             sizeText(sizes[c]);
        break;
      }
      if (view.result.devices.size() > c) {
        sizes[c] = view.sizes[c];
      }
    }
    results.push_back(std::move(view.result));
  }
  return results;
}

void calibrateViews(std::vector<CalibratedView>& views, std::vector<std::string> const& devices,
                    CalibrationSettings const& settings, std::function<void()> const& calibrate) {
  requireViews(views);
  calibrate();
  if (rejectOutliers(views, devices, settings)) {
    requireViews(views);
    calibrate();
  }
}

CameraCalibData calibData(std::vector<CalibratedView> const& views, std::size_t device) {
  CameraCalibData data;
  for (CalibratedView const& view : views) {
    if (view.isUsed()) {
      data.add(view.devices[device].imgPnts, view.devices[device].objPnts);
    }
  }
  return data;
}

std::vector<cv::Point2f> residualsOf(ViewPoints const& points, CameraModel const& model,
                                     cv::Matx44d const& pose) {
  std::vector<cv::Point2f> residuals = model.calcImagePoints(points.objPnts, pose);
  for (std::size_t i = 0; i < residuals.size(); ++i) {
    residuals[i] -= points.imgPnts[i];
  }
  return residuals;
}

void fillResiduals(std::vector<CalibratedView>& views, std::size_t device, CameraModel const& model,
                   CameraCalibData const& data) {
  int number = 0;
  for (CalibratedView& view : views) {
    if (view.isUsed()) {
      ViewPoints& points = view.devices[device];
      points.residuals = residualsOf(points, model, data.getPose(number++));
    }
  }
}

void requireDifferentSides(CameraCalibData const& data) {
  if (largestTurn(data) < leastTurn) {
    throw calibrationFailure(
        "All views show the target from the same side, which leaves the focal length undetermined: tilt the "
        "target by 20 degrees and more, to different sides");
  }
}

double agreedRotationDefect(cv::Matx44d const& transform) {
  cv::Matx33d const r = math::getR3(transform);
  double const defect = cv::norm(r.t() * r - cv::Matx33d::eye(), cv::NORM_INF);
  constexpr double mostDefect = 1e-3; // two degrees
  if (defect > mostDefect) {
    throw calibrationFailure("The views do not agree on where the two devices stand to each other, by some " +
                             std::to_string(cvRound(std::sqrt(defect) * 180 / CV_PI)) +
                             " degrees: images are mirrored, columns and rows are exchanged, or a device was "
                             "moved between the poses");
  }
  return defect;
}

DeviceReport deviceReport(std::string const& name, CameraModel const& model,
                          std::vector<CalibratedView> const& views, std::size_t device) {
  std::vector<cv::Point2f> joint;
  for (CalibratedView const& view : views) {
    if (view.isUsed()) {
      auto const& residuals = view.devices[device].jointResiduals;
      joint.insert(joint.end(), residuals.begin(), residuals.end());
    }
  }
  return {name, model.getResolution(), model.getCalibError(), rms(joint), model.isCalibrated()};
}

} // namespace vorn::mv
