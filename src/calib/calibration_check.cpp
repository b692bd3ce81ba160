// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/calibration_check.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

#include <opencv2/calib3d.hpp>

#include <vorn/mv/calib/camera_calib_data.hpp>
#include <vorn/mv/calib/line_scanner_calib_data.hpp>

#include "calib/target/point_spread.hpp"

namespace vorn::mv {

namespace {

using Points = std::vector<cv::Point2f>;

/// A homography has eight unknowns; two points more let errors show.
constexpr std::size_t fewestPoints = 6;

/// Directions closer than this, in radians, are one: lens distortion alone can tilt a frontal view by a few
/// hundredths.
constexpr double leastTilt = 0.1;

bool isFinite(cv::Point2f const& p) {
  return std::isfinite(p.x) && std::isfinite(p.y);
}

std::optional<std::string> findViewProblem(Points const& imgPnts, Points const& objPnts,
                                           cv::Size const& resolution) {
  auto const isInside = [&](cv::Point2f const& p) {
    return p.x >= -0.5F && p.y >= -0.5F && p.x <= static_cast<float>(resolution.width) - 0.5F &&
           p.y <= static_cast<float>(resolution.height) - 0.5F;
  };
  if (imgPnts.size() != objPnts.size()) {
    return std::to_string(imgPnts.size()) + " image points and " + std::to_string(objPnts.size()) +
           " pattern points";
  }
  if (imgPnts.size() < fewestPoints) {
    return "only " + std::to_string(imgPnts.size()) + " points, at least " + std::to_string(fewestPoints) +
           " are needed";
  }
  if (!std::all_of(imgPnts.begin(), imgPnts.end(), isFinite) ||
      !std::all_of(objPnts.begin(), objPnts.end(), isFinite)) {
    return "points that are not finite";
  }
  if (!std::all_of(imgPnts.begin(), imgPnts.end(), isInside)) {
    return "points outside the image of " + std::to_string(resolution.width) + " x " +
           std::to_string(resolution.height) + " pixels";
  }
  if (relativeSpread(imgPnts) < thinnestSpread || relativeSpread(objPnts) < thinnestSpread) {
    return "points that all lie on one line";
  }
  return std::nullopt;
}

/// The pattern's normal in the camera's frame, reckoned with a common focal length: from the image of the
/// pattern's line at infinity. For parallel planes it is the same line whatever the true focal length.
cv::Vec3d patternNormal(Points const& imgPnts, Points const& objPnts, cv::Size const& resolution) {
  double const focalLength = 1.2 * std::max(resolution.width, resolution.height);
  cv::Matx33d const K(focalLength, 0, resolution.width / 2.0, 0, focalLength, resolution.height / 2.0, 0, 0,
                      1);
  cv::Mat const found = cv::findHomography(objPnts, imgPnts);
  if (found.empty()) {
    return {};
  }
  cv::Matx33d const H = found;
  cv::Vec3d const atInfinity = cv::Vec3d(H(0, 0), H(1, 0), H(2, 0)).cross({H(0, 1), H(1, 1), H(2, 1)});
  cv::Vec3d const normal = K.t() * atInfinity;
  return normal * (1 / cv::norm(normal));
}

bool areAllAlike(std::vector<cv::Vec3d> const& normals) {
  return std::all_of(normals.begin(), normals.end(), [&](cv::Vec3d const& a) {
    return std::all_of(normals.begin(), normals.end(),
                       [&](cv::Vec3d const& b) { return cv::norm(a.cross(b)) < std::sin(leastTilt); });
  });
}

std::string inView(int i, std::string const& problem) {
  return "view " + std::to_string(i) + " has " + problem;
}

} // namespace

std::optional<std::string> findCalibrationProblem(CameraCalibData const& data, cv::Size const& resolution) {
  constexpr int fewestViews = 3;
  if (resolution.width <= 0 || resolution.height <= 0) {
    return "the resolution of the camera is not known";
  }
  if (data.count() < fewestViews) {
    return std::to_string(data.count()) + " views are too few, at least " + std::to_string(fewestViews) +
           " are needed";
  }
  std::vector<cv::Vec3d> normals;
  for (int i = 0; i < data.count(); ++i) {
    if (auto const problem = findViewProblem(data.getImgPnts(i), data.getObjPnts(i), resolution)) {
      return inView(i, *problem);
    }
    normals.push_back(patternNormal(data.getImgPnts(i), data.getObjPnts(i), resolution));
    if (normals.back() == cv::Vec3d()) {
      return inView(i, "points that do not fit a plane pattern");
    }
  }
  if (areAllAlike(normals)) {
    return "all views show the pattern from the same direction, which does not determine the focal length: "
           "tilt it "
           "differently from view to view, by 15 degrees or more";
  }
  return std::nullopt;
}

std::optional<std::string> findCalibrationProblem(LineScannerCalibData const& data,
                                                  cv::Size const& resolution, int planeCount) {
  constexpr int fewestViewsOfALine = 2;
  if (auto problem = findCalibrationProblem(static_cast<CameraCalibData const&>(data), resolution)) {
    return problem;
  }
  std::vector<int> seen(static_cast<std::size_t>(planeCount), 0);
  for (int i = 0; i < data.count(); ++i) {
    auto const lineCount =
        static_cast<std::size_t>(i) < data.getLinePntsss().size() ? data.getLinePntss(i).size() : 0;
    if (lineCount != seen.size()) {
      return inView(i, std::to_string(lineCount) + " laser lines instead of " + std::to_string(planeCount));
    }
    for (std::size_t line = 0; line < seen.size(); ++line) {
      seen[line] += data.getLinePntss(i)[line].empty() ? 0 : 1;
    }
  }
  for (std::size_t line = 0; line < seen.size(); ++line) {
    if (seen[line] < fewestViewsOfALine) {
      return "laser line " + std::to_string(line) + " lies on the pattern in " + std::to_string(seen[line]) +
             " views, at least " + std::to_string(fewestViewsOfALine) + " are needed";
    }
  }
  return std::nullopt;
}

} // namespace vorn::mv
