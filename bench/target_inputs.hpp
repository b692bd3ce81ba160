// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/calib/line_scanner.hpp>
#include <vorn/mv/geometry/plane3f.hpp>
#include <vorn/mv/scanner/calibration.hpp>

#include "scan_inputs.hpp"
#include "sim/target_photo.hpp"

/// The photographs of targets, with and without a laser's light, that calibrations are measured on.
namespace vorn::bench {

/// A target that fills the image, a little tilted towards a side.
inline cv::Mat targetPhoto(cv::Size const& size, double turn) {
  double const focal = 1.3 * size.width;
  sim::TargetPhoto photo;
  photo.device =
      sim::Device({focal, focal}, {0.5 * size.width, 0.5 * size.height}, {-0.12, 0.08, 0, 0, 0}, size);
  photo.cam_from_target = sim::viewOf({0, 0}, 500, 20, turn, 8);
  photo.noise = 2;
  return sim::render(photo);
}

/// The photograph with a laser stripe down it.
inline cv::Mat withLaser(cv::Mat const& photo) {
  cv::Mat image = 0.2 * photo;
  int const middle = image.cols / 2;
  cv::line(image, {middle, 0}, {middle + 40, image.rows}, cv::Scalar(220), 5, cv::LINE_AA);
  cv::GaussianBlur(image, image, {5, 5}, 1);
  return image;
}

/// For these photographs.
inline mv::CalibrationSettings calibrationSettings() {
  mv::CalibrationSettings settings;
  settings.detector["PatternDim"] = 15.0;
  settings.detector["MinDotArea"] = 20.0;
  settings.detector["MaxDotArea"] = 10000.0;
  return settings;
}

/// A camera and a plane of light half a metre before it.
inline mv::LineScanner lineScanner(cv::Size const& size, cv::Vec3f const& normal) {
  nlohmann::json json;
  cameraModel(size, 1.3 * size.width).write(json["CameraModel"]);
  mv::Plane3f({0, 0, 500}, normal).write(json["Plane_0"]);
  mv::LineScanner scanner;
  scanner.read(json);
  return scanner;
}

} // namespace vorn::bench
