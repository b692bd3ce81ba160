// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// A scan of 2448 x 2048 pixels and 13 images, decoded and triangulated, in units of a plain copy of one float
// map of that size measured in the same run (counter "copies").
#include <benchmark/benchmark.h>
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

#include "copy_yardstick.hpp"

namespace vorn::mv {
namespace {

using bench::cameraSize;
using bench::measureInCopies;

cv::Size const projectorSize(1280, 800);

CameraModel model(cv::Size const& resolution, double focal) {
  nlohmann::json json;
  json["Resolution"] = resolution;
  json["K"] = cv::Matx33d(focal, 0, 0.5 * resolution.width, 0, focal, 0.5 * resolution.height, 0, 0, 1);
  json["D"] = cv::Mat(cv::Matx<double, 1, 5>(-0.12, 0.09, 0.0006, -0.0004, -0.02));
  json["Error"] = 0.1;
  CameraModel model;
  model.read(json);
  return model;
}

Sl3dScanner makeScanner() {
  Library::init();
  System::set("EnableDebugMode", Variant(false));
  Sl3dScanner scanner;
  scanner.getCameraModel() = model(cameraSize, 3200);
  scanner.getProjectorModel() = model(projectorSize, 1600);
  scanner.setTransform({0.95, 0, -0.31, 172, 0, 1, 0, -8, 0.31, 0, 0.95, 16, 0, 0, 0, 1});
  return scanner;
}

/// The projector column of a pixel: a wavy surface, and a plate before it that shadows a strip; negative in
/// the shadow.
double columnAt(int x, int y) {
  bool const onPlate = x > 1400 && x < 2000 && y > 500 && y < 1500;
  bool const inShadow = x > 1330 && x <= 1400 && y > 500 && y < 1500;
  return inShadow ? -1 : 60 + 0.45 * x + 6 * std::sin(0.004 * x) * std::cos(0.005 * y) + (onPlate ? 35 : 0);
}

/// The captured stack: defocus of 0.7 projector pixels, noise of one grey level.
std::vector<cv::Mat> makeStack() {
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
  generate_ps4_patterns(columns, rows, projectorSize);
  std::vector<cv::Mat> stack;
  for (cv::Mat const& pattern : columns) {
    cv::Mat_<float> light;
    pattern.row(0).convertTo(light, CV_32F);
    cv::GaussianBlur(light, light, {9, 1}, 0.7);
    cv::Mat_<float> grey(cameraSize);
    for (int y = 0; y < grey.rows; ++y) {
      for (int x = 0; x < grey.cols; ++x) {
        double const column = columnAt(x, y);
        int const whole = static_cast<int>(column);
        auto const part = static_cast<float>(column - whole);
        grey(y, x) = column < 0 ? 6 : 8 + 0.5F * ((1 - part) * light(whole) + part * light(whole + 1));
      }
    }
    cv::Mat_<float> noise(cameraSize);
    cv::randn(noise, 0, 1);
    cv::Mat image;
    cv::Mat(grey + noise).convertTo(image, CV_8U);
    stack.push_back(image);
  }
  return stack;
}

std::vector<cv::Mat> const& stack() {
  static std::vector<cv::Mat> const images = makeStack();
  return images;
}

void nothing() {}

void decode(benchmark::State& state) {
  Sl3dScanner scanner = makeScanner();
  measureInCopies(state, nothing, [&] { scanner.decode(stack()); });
}

void decodeTwoThreads(benchmark::State& state) {
  Sl3dScanner scanner = makeScanner();
  stack();
  cv::setNumThreads(2);
  for (auto _ : state) {
    scanner.decode(stack());
  }
  cv::setNumThreads(-1);
}

void triangulate(benchmark::State& state) {
  Sl3dScanner scanner = makeScanner();
  cv::Mat_<float> const map = scanner.decode(stack());
  cv::Mat_<cv::Vec3f> xyz;
  measureInCopies(state, nothing, [&] { scanner.triangulate(map, xyz, {{0, 0}, cameraSize}); });
}

void triangulateRows(benchmark::State& state) {
  Sl3dScanner scanner = makeScanner();
  cv::Mat_<float> map = scanner.decode(stack());
  map *= 0.5F;
  scanner["ScannerType"] = "Vertical";
  cv::Mat_<cv::Vec3f> xyz;
  measureInCopies(state, nothing, [&] { scanner.triangulate(map, xyz, {{0, 0}, cameraSize}); });
}

BENCHMARK(decode)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(decodeTwoThreads)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(triangulate)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(triangulateRows)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace
} // namespace vorn::mv
