// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include <vorn/core/system.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/core/matrix_json.hpp>
#include <vorn/mv/sl/patterns.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

/// The scanner and the captured stack that scans are measured on.
namespace vorn::bench {

inline cv::Size const projectorSize(1280, 800);

inline mv::CameraModel cameraModel(cv::Size const& resolution, double focal) {
  nlohmann::json json;
  json["Resolution"] = resolution;
  json["K"] = cv::Matx33d(focal, 0, 0.5 * resolution.width, 0, focal, 0.5 * resolution.height, 0, 0, 1);
  json["D"] = cv::Mat(cv::Matx<double, 1, 5>(-0.12, 0.09, 0.0006, -0.0004, -0.02));
  json["Error"] = 0.1;
  mv::CameraModel model;
  model.read(json);
  return model;
}

inline mv::Sl3dScanner calibratedScanner(cv::Size const& camera) {
  mv::Library::init();
  System::set("EnableDebugMode", Variant(false));
  mv::Sl3dScanner scanner;
  scanner.getCameraModel() = cameraModel(camera, 1.3 * camera.width);
  scanner.getProjectorModel() = cameraModel(projectorSize, 1600);
  scanner.setTransform({0.95, 0, -0.31, 172, 0, 1, 0, -8, 0.31, 0, 0.95, 16, 0, 0, 0, 1});
  return scanner;
}

/// The projector column of a pixel of an image of 2448 x 2048: a wavy surface, and a plate before it that
/// shadows a strip; negative in the shadow.
inline double columnAt(double x, double y) {
  bool const onPlate = x > 1400 && x < 2000 && y > 500 && y < 1500;
  bool const inShadow = x > 1330 && x <= 1400 && y > 500 && y < 1500;
  return inShadow ? -1 : 60 + 0.45 * x + 6 * std::sin(0.004 * x) * std::cos(0.005 * y) + (onPlate ? 35 : 0);
}

/// What a camera sees of the projector's light, in grey levels.
struct Light {
  float brightness = 127; ///< of white
  double noise = 1;       ///< standard deviation
};

/// Images of patterns that code columns: defocus of 0.7 projector pixels, a little light from elsewhere.
inline std::vector<cv::Mat> captured(std::vector<cv::Mat> const& columns, cv::Size const& camera,
                                     Light const& light = {}) {
  std::vector<cv::Mat> stack;
  cv::Mat_<double> seen(camera);
  for (int y = 0; y < seen.rows; ++y) {
    for (int x = 0; x < seen.cols; ++x) {
      seen(y, x) = columnAt(2448.0 / camera.width * x, 2048.0 / camera.height * y);
    }
  }
  for (cv::Mat const& pattern : columns) {
    cv::Mat_<float> projected;
    pattern.row(0).convertTo(projected, CV_32F, light.brightness / 255.0);
    cv::GaussianBlur(projected, projected, {9, 1}, 0.7);
    cv::Mat_<float> grey(camera);
    for (int y = 0; y < grey.rows; ++y) {
      for (int x = 0; x < grey.cols; ++x) {
        double const column = seen(y, x);
        int const whole = static_cast<int>(column);
        auto const part = static_cast<float>(column - whole);
        grey(y, x) = column < 0 ? 6 : 8 + (1 - part) * projected(whole) + part * projected(whole + 1);
      }
    }
    cv::Mat_<float> noise(camera);
    cv::randn(noise, 0, light.noise);
    cv::Mat image;
    cv::Mat(grey + noise).convertTo(image, CV_8U);
    stack.push_back(image);
  }
  return stack;
}

/// The captured stack of 13 images.
inline std::vector<cv::Mat> capturedStack(cv::Size const& camera, Light const& light = {}) {
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
  mv::generate_ps4_patterns(columns, rows, projectorSize);
  return captured(columns, camera, light);
}

/// A stack of 13 images without any pattern.
inline std::vector<cv::Mat> noiseStack(cv::Size const& camera) {
  std::vector<cv::Mat> stack;
  for (int k = 0; k < 13; ++k) {
    cv::Mat image(camera, CV_8U);
    cv::randn(image, 100, 25);
    stack.push_back(image);
  }
  return stack;
}

} // namespace vorn::bench
