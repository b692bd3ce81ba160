// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/target_views.hpp"

#include <algorithm>
#include <cmath>

#include <opencv2/core.hpp>

#include <vorn/mv/geometry/transform.hpp>

#include "tools/commands/size_option.hpp"
#include "tools/files/image_files.hpp"
#include "tools/progress.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t leastViews = 3;

/// A view whose error exceeds this many times that of the middle view is thought to have a fault of its
/// own...
constexpr double mostRelativeError = 3;
/// ... unless its error is small anyway, pixels.
constexpr double harmlessError = 0.1;

/// Between the two most different views, degrees.
constexpr double leastTurn = 4;

std::vector<fs::path> poseFolders(std::string const& folder) {
  fs::path const inner = fs::path(folder) / "calib";
  fs::path const root = fs::is_directory(inner) ? inner : fs::path(folder);
  if (!fs::is_directory(root)) {
    throw calibrationFailure("There is no folder " + root.string());
  }
  std::vector<fs::path> poses;
  for (auto const& entry : fs::directory_iterator(root)) {
    if (entry.is_directory() && entry.path().filename().string().rfind("pose_", 0) == 0) {
      poses.push_back(entry.path());
    }
  }
  if (poses.empty()) {
    throw calibrationFailure("There are no folders pose_00, pose_01, ... in " + root.string());
  }
  std::sort(poses.begin(), poses.end());
  return poses;
}

/// A reason without the path of the view's folder: the view is named beside it.
std::string withoutFolder(std::string reason, std::string const& folder) {
  std::string const paths[] = {folder + "/", folder};
  std::string const texts[] = {"", "its folder"};
  for (int i = 0; i < 2; ++i) {
    for (auto at = reason.find(paths[i]); at != std::string::npos;
         at = reason.find(paths[i], at + texts[i].size())) {
      reason.replace(at, paths[i].size(), texts[i]);
    }
  }
  return reason;
}

void requireViews(std::vector<TargetView> const& views) {
  ViewReasons rejected;
  for (TargetView const& view : views) {
    if (!view.isUsed()) {
      rejected.emplace_back(view.name, view.rejection);
    }
  }
  std::size_t const usable = views.size() - rejected.size();
  if (usable < leastViews) {
    throw calibrationFailure("Only " + std::to_string(usable) + " of " + std::to_string(views.size()) +
                             " views can be used, and a calibration takes " + std::to_string(leastViews) +
                             (rejected.empty() ? "" : "; ") + groupedText(rejected));
  }
}

/// Leaves out views whose error stands out. Returns whether there were any.
bool rejectOutliers(std::vector<TargetView>& views, std::vector<std::string> const& devices) {
  bool isAnyRejected = false;
  for (std::size_t device = 0; device < devices.size(); ++device) {
    std::vector<double> errors;
    for (TargetView const& view : views) {
      if (view.isUsed()) {
        errors.push_back(rms(view.devices[device].residuals));
      }
    }
    if (errors.empty()) {
      break;
    }
    auto const middle = errors.begin() + static_cast<std::ptrdiff_t>(errors.size() / 2);
    std::nth_element(errors.begin(), middle, errors.end());
    double const most = std::max(harmlessError, mostRelativeError * *middle);
    for (TargetView& view : views) {
      double const error = view.isUsed() ? rms(view.devices[device].residuals) : 0;
      if (error > most) {
        view.rejection =
            "the " + devices[device] + "'s reprojection error is " + std::to_string(error) + " px";
        isAnyRejected = true;
      }
    }
  }
  return isAnyRejected;
}

/// The largest angle between the target's normals in two views, degrees.
double largestTurn(mv::CameraCalibData const& data) {
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

} // namespace

double rms(std::vector<cv::Point2f> const& residuals) {
  double squares = 0;
  for (cv::Point2f const& residual : residuals) {
    squares += residual.ddot(residual);
  }
  return residuals.empty() ? 0.0 : std::sqrt(squares / static_cast<double>(residuals.size()));
}

Exception calibrationFailure(std::string const& message) {
  return {message, nullptr, 0, "calibrate"};
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

std::vector<TargetView> readViews(std::string const& folder,
                                  std::function<void(fs::path const&, TargetView&)> const& read) {
  std::vector<fs::path> const poses = poseFolders(folder);
  std::vector<TargetView> views;
  Progress progress("Reading views", static_cast<int>(poses.size()));
  for (fs::path const& pose : poses) {
    TargetView view;
    view.name = pose.filename().string();
    try {
      read(pose, view);
    } catch (Exception const& e) {
      view.rejection = withoutFolder(e.message(), pose.string());
    } catch (cv::Exception const& e) {
      view.rejection = e.err;
    }
    views.push_back(std::move(view));
    progress.step();
  }
  return views;
}

ViewPoints findTarget(fs::path const& picture, mv::CalibPatternDetector const& detector, cv::Size& expected) {
  cv::Mat const image = readGrayImage(picture.string());
  std::string const name = picture.filename().string();
  if (!expected.empty() && image.size() != expected) {
    throw calibrationFailure(name + " is " + sizeText(image.size()) + ", the first view's " +
                             sizeText(expected));
  }
  auto const found = detector.detect(image);
  if (found.isEmpty()) {
    throw calibrationFailure("no target found in " + name +
                             ", or fewer than MinKeypointCount dots of MinDotArea to MaxDotArea pixels");
  }
  if (!found.isOriginMarked()) {
    throw calibrationFailure("the marker dots are not in view in " + name);
  }
  expected = image.size();
  ViewPoints points;
  points.imgPnts = found.getImgPnts();
  points.objPnts = found.getObjPnts();
  return points;
}

void calibrateViews(std::vector<TargetView>& views, std::vector<std::string> const& devices,
                    std::function<void()> const& calibrate) {
  requireViews(views);
  calibrate();
  if (rejectOutliers(views, devices)) {
    requireViews(views);
    calibrate();
  }
}

mv::CameraCalibData calibData(std::vector<TargetView> const& views, std::size_t device) {
  mv::CameraCalibData data;
  for (TargetView const& view : views) {
    if (view.isUsed()) {
      data.add(view.devices[device].imgPnts, view.devices[device].objPnts);
    }
  }
  return data;
}

std::vector<cv::Point2f> residualsOf(ViewPoints const& points, mv::CameraModel const& model,
                                     cv::Matx44d const& pose) {
  std::vector<cv::Point2f> residuals = model.calcImagePoints(points.objPnts, pose);
  for (std::size_t i = 0; i < residuals.size(); ++i) {
    residuals[i] -= points.imgPnts[i];
  }
  return residuals;
}

void fillResiduals(std::vector<TargetView>& views, std::size_t device, mv::CameraModel const& model,
                   mv::CameraCalibData const& data) {
  int number = 0;
  for (TargetView& view : views) {
    if (view.isUsed()) {
      ViewPoints& points = view.devices[device];
      points.residuals = residualsOf(points, model, data.getPose(number++));
    }
  }
}

void requireDifferentSides(mv::CameraCalibData const& data) {
  if (largestTurn(data) < leastTurn) {
    throw calibrationFailure(
        "All views show the target from the same side, which leaves the focal length undetermined: tilt the "
        "target by 20 degrees and more, to different sides");
  }
}

double agreedRotationDefect(cv::Matx44d const& transform) {
  cv::Matx33d const r = mv::math::getR3(transform);
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

} // namespace vorn::tools
