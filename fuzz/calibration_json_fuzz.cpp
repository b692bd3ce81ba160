// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// A JSON document is given to every class that reads one; those that take it are put to use.
#include <cmath>
#include <optional>

#include <vorn/core/system.hpp>
#include <vorn/mv/calib/calib_pattern_detector.hpp>
#include <vorn/mv/calib/calibration_check.hpp>
#include <vorn/mv/calib/camera_calib_data.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/calib/line_scanner.hpp>
#include <vorn/mv/calib/line_scanner_calib_data.hpp>
#include <vorn/mv/calib/stereo_camera.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/core/matrix_json.hpp>
#include <vorn/mv/geometry/line2f.hpp>
#include <vorn/mv/geometry/line3f.hpp>
#include <vorn/mv/geometry/plane3f.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "read_contract.hpp"

namespace vorn::fuzz {
namespace {

using nlohmann::json;

/// Calls that work on each pixel are tried on cameras up to this many pixels, so that a run stays short.
constexpr double mostPixels = 4096;

bool isSmall(mv::CameraModel const& camera) {
  cv::Size const size = camera.getResolution();
  return static_cast<double>(size.width) * size.height <= mostPixels;
}

/// A call that may refuse its arguments by the library's exception or, where it says so, by OpenCV's.
template <class Action>
void attempt(Action const& action) {
  try {
    action();
  } catch (Exception const&) {
  } catch (cv::Exception const&) {
  }
}

void use(mv::CameraModel const& camera) {
  std::vector<cv::Point2f> const points{{0, 0}, {3.5F, 2}, {-1e6F, 1e6F}};
  cv::Matx44d const pose = cv::Matx44d::eye();
  attempt([&] { require(camera.undistortPoints(points).size() == points.size(), "every pixel has a ray"); });
  attempt(
      [&] { require(camera.calcImagePoints(points, pose).size() == points.size(), "every point an image"); });
  attempt([&] { camera.calcObjectPoints(points, pose); });
}

void use(mv::Sl3dScanner& scanner) {
  scanner.toString();
  if (!isSmall(scanner.getCameraModel()) || !isSmall(scanner.getProjectorModel())) {
    return;
  }
  cv::Size const size = scanner.getCameraModel().getResolution();
  cv::Mat_<float> const map(size, 1.25F);
  cv::Mat_<cv::Vec3f> xyz;
  attempt([&] { scanner.triangulate(map, xyz, cv::Rect({0, 0}, size)); });
  attempt([&] {
    cv::Mat_<float> const decoded =
        scanner.decode(std::vector<cv::Mat>(15, cv::Mat(size, CV_8UC1, cv::Scalar(90))));
    require(decoded.size() == size, "a decoded map is as large as the camera's image");
  });
}

void use(mv::StereoCamera& stereo) {
  if (isSmall(stereo.getCameraModel0()) && isSmall(stereo.getCameraModel1())) {
    attempt([&] { stereo.calcUndistortedMaps(); });
  }
}

void use(mv::LineScanner const& scanner) {
  require(!scanner.isCalibrated() || !scanner.getPlanes().empty(), "a calibrated scanner has planes");
  for (int plane = -1; plane < 3; ++plane) {
    attempt([&] { scanner.triangulate(std::vector<cv::Point2f>{{1, 2}, {3, 4}}, plane, {0, 0}); });
  }
}

void use(mv::CameraCalibData& data) {
  mv::findCalibrationProblem(data, {64, 48});
  data.removeLast();
  data.clear();
}

void use(mv::LineScannerCalibData& data) {
  mv::findCalibrationProblem(data, {64, 48}, 2);
  data.removeLast();
  data.clear();
}

void use(mv::CalibPatternDetector const& detector) {
  require(detector.detect(cv::Mat(24, 32, CV_8UC1, cv::Scalar(70))).isEmpty(), "no dots on an even image");
}

void use(mv::Plane3f const& plane) {
  plane.distance({1, 2, 3});
}
void use(mv::Line2f const& line) {
  line.distance({1, 2});
}
void use(mv::Line3f const& line) {
  line.distance({1, 2, 3});
}

template <class Object>
void tryObject(json const& document) {
  Object object;
  if (tryRead(object, document)) {
    use(object);
    tryRead(object, json::object()); // now with something to lose
  }
}

/// A value with `from_json` and `to_json`.
template <class Value>
struct Holder {
  Value value{};

  void read(json const& document) { value = document.get<Value>(); }
  void write(json& document) const { document = value; }
};

template <class Value>
void tryValue(json const& document, Value const& before = Value()) {
  Holder<Value> holder{before};
  tryRead(holder, document);
}

void tryAll(json const& document) {
  tryObject<mv::Sl3dScanner>(document);
  tryObject<mv::StereoCamera>(document);
  tryObject<mv::LineScanner>(document);
  tryObject<mv::CameraModel>(document);
  tryObject<mv::CameraCalibData>(document);
  tryObject<mv::LineScannerCalibData>(document);
  tryObject<mv::CalibPatternDetector>(document);
  tryObject<mv::Plane3f>(document);
  tryObject<mv::Line2f>(document);
  tryObject<mv::Line3f>(document);
  tryValue<cv::Mat>(document,
                    cv::Mat::zeros(1, 1, CV_64F)); // the empty one is of bytes, which JSON cannot hold
  tryValue<cv::Mat_<float>>(document);
  tryValue<cv::Matx44d>(document);
  tryValue<cv::Vec3f>(document);
  tryValue<cv::Point2f>(document);
  tryValue<cv::Size>(document);
  tryValue<std::vector<std::vector<cv::Point2f>>>(document);
  tryValue<std::vector<cv::Mat>>(document);
}

} // namespace
} // namespace vorn::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  return vorn::fuzz::runInput([=] {
    auto const document = nlohmann::json::parse(data, data + size, nullptr, false);
    if (!document.is_discarded()) {
      vorn::fuzz::tryAll(document);
    }
  });
}
