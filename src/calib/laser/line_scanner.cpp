// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/line_scanner.hpp>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <string>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/system.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/calib/line_scanner_calib_data.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/geometry/plane3f.hpp>
#include <vorn/mv/geometry/transform.hpp>

#include "calib/calibrated_poses.hpp"
#include "calib/target/point_spread.hpp"
#include "core/error.hpp"
#include "core/json_member.hpp"

namespace vorn::mv {

struct LineScanner::Private : Record<LineScanner::Private, PropertySetBase::Private> {
  Private() { isNeverShared = true; } // as the camera model in it

  CameraModel camera;
  std::vector<Plane3f> planes;
};

namespace {

std::string planeKey(std::size_t plane) {
  return "Plane_" + std::to_string(plane);
}

bool holdsLines(LineScannerCalibData const& data, int planeCount) {
  auto const& views = data.getLinePntsss();
  return views.size() == static_cast<std::size_t>(data.count()) &&
         std::all_of(views.begin(), views.end(),
                     [&](auto const& lines) { return lines.size() == static_cast<std::size_t>(planeCount); });
}

bool isPlane(Plane3f const& plane) {
  return cv::checkRange(cv::Vec3f(plane.point())) && cv::checkRange(plane.normal()) &&
         cv::norm(plane.normal()) > 0;
}

/// One laser line on the pattern in all views, in the camera's frame.
std::vector<cv::Point3f> pointsOnLaserPlane(LineScannerCalibData const& data, CameraModel const& camera,
                                            std::size_t plane) {
  std::vector<cv::Point3f> points;
  int viewCount = 0;
  std::vector<cv::Matx44d> const poses = latestPoses(data);
  for (int i = 0; i < data.count(); ++i) {
    auto const& line = data.getLinePntss(i)[plane];
    cv::Matx44d const& pose = poses[static_cast<std::size_t>(i)];
    auto const inView = math::transformPoints(camera.calcObjectPoints(line, pose), pose);
    std::copy_if(inView.begin(), inView.end(), std::back_inserter(points), [](cv::Point3f const& p) {
      return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
    });
    viewCount += line.empty() ? 0 : 1;
  }
  if (points.size() >= 3 && viewCount < 2) {
    throw error("Not enough line data", "calib");
  }
  if (points.size() >= 3 && relativeSpread(points) < thinnestSpread) {
    throw error("Laser line " + std::to_string(plane) +
                    " lies at one place in all views, which determines no plane",
                "calib");
  }
  return points;
}

} // namespace

LineScanner::LineScanner() : PropertySetBase(new Private) {
  declareProperties({planeCountRow()});
}

LineScanner::~LineScanner() = default;

void LineScanner::calib(LineScannerCalibData& data) {
  constexpr int maxIterations = 50;
  constexpr double maxMeanDistance = 1.0;
  Library::assertValid();
  bool const isDebug = Library::getEnableDebug();
  if (data.count() < 3) {
    throw error("Insufficient calibration data!", "calib");
  }
  int const lineCount = planeCount();
  if (!holdsLines(data, lineCount)) {
    throw error("Invalid calibration input data!", "calib");
  }
  CameraModel camera = getCameraModel();
  LineScannerCalibData calibrated = data;
  camera.calib(calibrated, maxIterations);

  if (isDebug) {
    System::message("Estimating laser planes...\n");
  }
  std::vector<Plane3f> planes;
  std::vector<std::vector<cv::Point3f>> planePntss;
  for (int p = 0; p < lineCount; ++p) {
    if (isDebug) {
      System::message("Plane id=" + std::to_string(p) + "\n");
    }
    planePntss.push_back(pointsOnLaserPlane(calibrated, camera, static_cast<std::size_t>(p)));
    planes.push_back(Plane3f::estimate(planePntss.back(), maxMeanDistance));
  }
  auto& own = static_cast<Private&>(ownRecord());
  own.camera = camera;
  own.planes = planes;
  addNewPoses(data, calibrated);
  data.setPlanePntss(planePntss);
}

std::vector<cv::Point3f> LineScanner::triangulate(std::vector<cv::Point2f> const& points, int planeId,
                                                  cv::Point2f const& offset) const {
  auto const planeCount = getPlanes().size();
  if (planeId < 0 || static_cast<std::size_t>(planeId) >= planeCount) {
    throw error("There is no laser plane " + std::to_string(planeId) + " among " + std::to_string(planeCount),
                "triangulate");
  }
  return getCameraModel().triangulate(points, getPlanes()[static_cast<std::size_t>(planeId)], offset);
}

std::vector<std::vector<cv::Point3f>>
LineScanner::triangulate(std::vector<std::vector<cv::Point2f>> const& lines,
                         cv::Point2f const& offset) const {
  std::vector<std::vector<cv::Point3f>> result;
  result.reserve(lines.size());
  for (auto const& line : lines) {
    result.push_back(triangulate(line, static_cast<int>(result.size()), offset));
  }
  return result;
}

CameraModel const& LineScanner::getCameraModel() const {
  return static_cast<Private const&>(record()).camera;
}

void LineScanner::setCameraModel(CameraModel const& model) {
  static_cast<Private&>(ownRecord()).camera = model;
}

std::vector<Plane3f> const& LineScanner::getPlanes() const {
  return static_cast<Private const&>(record()).planes;
}

void LineScanner::setPlanes(std::vector<Plane3f> const& planes) {
  for (std::size_t i = 0; i < planes.size(); ++i) {
    if (!isPlane(planes[i])) {
      throw error("Plane " + std::to_string(i) + " must be finite and have a normal", "setPlanes");
    }
  }
  (*this)["PlaneCount"] = static_cast<int>(planes.size()); // which refuses none and too many
  static_cast<Private&>(ownRecord()).planes = planes;
}

bool LineScanner::isCalibrated() const {
  return getCameraModel().isCalibrated() && getPlanes().size() == static_cast<std::size_t>(planeCount());
}

std::string const& LineScanner::getClassName() const {
  static std::string const name = "vorn::mv::LineScanner";
  return name;
}

void LineScanner::read(nlohmann::json const& json) {
  if (json.contains("ProjectorModel")) {
    throw JsonRefusal("ProjectorModel",
                      " is there: this is a structured-light scanner, no laser line scanner", "LineScanner");
  }
  CameraModel camera;
  readJsonObject(json, "CameraModel", camera, "LineScanner");
  std::vector<Plane3f> planes;
  for (std::string key = planeKey(0); json.contains(key); key = planeKey(planes.size())) {
    planes.emplace_back();
    readJsonObject(json, key, planes.back(), "LineScanner");
    if (!isPlane(planes.back())) {
      throw JsonRefusal(key, " is no plane: \"p\" and \"n\" must be finite, and \"n\" not 0", "LineScanner");
    }
  }
  auto& own = static_cast<Private&>(ownRecord());
  if (!planes.empty()) {
    *own.properties.find("PlaneCount") = static_cast<int>(planes.size());
  }
  own.camera = camera;
  own.planes = planes;
}

void LineScanner::write(nlohmann::json& json) const {
  json = nlohmann::json::object();
  getCameraModel().write(json["CameraModel"]);
  for (std::size_t i = 0; i < getPlanes().size(); ++i) {
    getPlanes()[i].write(json[planeKey(i)]);
  }
}

} // namespace vorn::mv
