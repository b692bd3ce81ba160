// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/graphic/ply_file.hpp>
#include <vorn/mv/calib/detect_target.hpp>
#include <vorn/mv/measure/fit.hpp>
#include <vorn/mv/pointcloud/apply_filters.hpp>
#include <vorn/mv/scanner/calibrate_camera.hpp>
#include <vorn/mv/scanner/calibrate_laser.hpp>
#include <vorn/mv/scanner/calibrate_scanner.hpp>
#include <vorn/mv/scanner/calibrate_stereo.hpp>
#include <vorn/mv/scanner/scan.hpp>
#include <vorn/mv/scanner/scan_laser.hpp>

#include "cloud_inputs.hpp"
#include "file_inputs.hpp"
#include "memory_case.hpp"
#include "scan_inputs.hpp"
#include "target_inputs.hpp"

namespace vorn::bench {

namespace {

/// A target seen from three sides.
std::vector<cv::Mat> const& photos(cv::Size const& size) {
  static std::vector<cv::Mat> made;
  if (made.empty() || made[0].size() != size) {
    made.clear();
    for (double const turn : {30.0, 150.0, 270.0}) {
      made.push_back(targetPhoto(size, turn));
    }
  }
  return made;
}

/// However far off the views are, all of them are used. What an adjustment takes does not depend on the
/// images and has a row of its own.
mv::CalibrationSettings settings() {
  mv::CalibrationSettings made = calibrationSettings();
  made.isAdjusted = false;
  made.outlierRatio = 1e9;
  return made;
}

/// Measures a calibration, which may end in a refusal: its views and its models are made by then.
template <class Calibrate>
double calibrating(std::size_t pixels, Calibrate const& calibrate) {
  return workingBytes(pixels, [&] {
    try {
      calibrate();
    } catch (Exception const&) {
    }
  });
}

double calibrateCamera(Sizes const& sizes) {
  std::vector<mv::CameraView> views;
  for (cv::Mat const& photo : photos(sizes.image)) {
    views.push_back({"view", photo});
  }
  return calibrating(photos(sizes.image)[0].total(), [&] { mv::calibrateCamera(views, settings()); });
}

double calibrateStereo(Sizes const& sizes) {
  std::vector<mv::StereoView> views;
  for (cv::Mat const& photo : photos(sizes.image)) {
    views.push_back({"view", {photo, photo}});
  }
  return calibrating(2 * photos(sizes.image)[0].total(), [&] { mv::calibrateStereo(views, settings()); });
}

double calibrateLaser(Sizes const& sizes) {
  std::vector<mv::LaserView> views;
  for (cv::Mat const& photo : photos(sizes.image)) {
    views.push_back({"view", photo, {withLaser(photo)}});
  }
  return calibrating(photos(sizes.image)[0].total(), [&] { mv::calibrateLaser(views, settings()); });
}

/// One view, of which the columns are decoded: the rows take no more.
double measureScannerView(Sizes const& sizes) {
  mv::ScannerView const view{"view", photos(sizes.image)[0], capturedStack(sizes.image), {}};
  return calibrating(view.target.total(), [&] { mv::calibrateScanner({view}, settings()); });
}

/// What a scan holds, as one matrix for its size.
cv::Mat sizeOf(mv::ScanResult const& result) {
  constexpr int mapsBytes = 4 + 12 + 1 + 4 + 4;
  constexpr int cloudBytes = 12 + 3 + 1;
  return {result.map.rows, result.map.cols, CV_8UC(mapsBytes + cloudBytes), result.map.data};
}

double scan(Sizes const& sizes, bool isFirst) {
  auto const stack = capturedStack(sizes.image);
  mv::Sl3dScanner scanner = calibratedScanner(sizes.image);
  if (!isFirst) {
    mv::scan(scanner, stack);
  }
  std::size_t const rays = isFirst ? static_cast<std::size_t>(projectorSize.area()) : 0;
  return workingBytes(stack[0].total() + rays, [&] { return sizeOf(mv::scan(scanner, stack)); });
}

double scanLaser(Sizes const& sizes) {
  mv::LineScanner const scanner = lineScanner(sizes.image, {0.8F, 0, 0.6F});
  std::vector<cv::Mat> const images(2, withLaser(photos(sizes.image)[0]));
  return workingBytes(images[0].total(), [&] { mv::scanLaser(scanner, images, {{1, 0, 0}, {}}); });
}

double detect(cv::Mat const& image) {
  mv::TargetDescription target;
  target.pitch = 15;
  return workingBytes(image.total(), [&] { return mv::detectTarget(image, target).keyPoints; });
}

cv::Mat deepPhoto(cv::Size const& size) {
  cv::Mat deep;
  photos(size)[0].convertTo(deep, CV_16U, 200);
  return deep;
}

double applyFilters(Sizes const& sizes) {
  mv::PointCloud const cloud(organizedScan(sizes.cloudSide), true);
  auto const chain = nlohmann::json::parse(R"([{"class": "Dz"}, {"class": "Outlier"}])");
  return workingBytes(cloud.pointCount(), [&] {
    mv::PointCloud const cleaned = mv::applyFilters(cloud, chain);
    cv::Mat_<cv::Vec3f> const& points = cleaned.points();
    return cv::Mat(points.rows, points.cols, CV_8UC(12 + 1), points.data);
  });
}

/// Points on a part of a sphere, which looks even enough to be taken for a plane when the fit allows it.
mv::PointCloud cap(Sizes const& sizes) {
  cv::Mat_<cv::Vec3f> points(sizes.cloudSide, sizes.cloudSide);
  cv::Mat_<float> noise(points.size());
  cv::randn(noise, 0, 0.01);
  for (int y = 0; y < points.rows; ++y) {
    for (int x = 0; x < points.cols; ++x) {
      float const u = 40.0F * (static_cast<float>(x) / static_cast<float>(points.cols) - 0.5F);
      float const v = 40.0F * (static_cast<float>(y) / static_cast<float>(points.rows) - 0.5F);
      points(y, x) = {u, v, 500.0F - std::sqrt(2500.0F - u * u - v * v) + noise(y, x)};
    }
  }
  return {points, true};
}

template <class Shape>
cv::Mat sizeOf(mv::Fit<Shape> const& fit) {
  return {1, static_cast<int>(fit.residuals.size()), CV_64FC2, const_cast<double*>(fit.residuals.data())};
}

double load(Sizes const& sizes) {
  std::string const path = filePath(".ply");
  graphic::GraphicObject const mesh = triangulated(sizes.cloudSide, sizes.cloudSide);
  graphic::PLYFile().write(path, mesh);
  return workingBytes(mesh.vertices().size(), [&] {
    mv::PointCloud const cloud = mv::PointCloud::load(path);
    cv::Mat_<cv::Vec3f> const& points = cloud.points();
    return cv::Mat(points.rows, points.cols, CV_8UC(12 + 12 + 3 + 1), points.data);
  });
}

double save(Sizes const& sizes) {
  auto const cloud = mv::PointCloud::fromVertices(triangulated(sizes.cloudSide, sizes.cloudSide));
  return workingBytes(cloud.pointCount(), [&] { cloud.save(filePath(".ply")); });
}

} // namespace

std::vector<MemoryCase> jobCases() {
  return {
      {"`scan`, first call, per pixel of both devices", [](Sizes const& s) { return scan(s, true); }},
      {"`scan`", [](Sizes const& s) { return scan(s, false); }},
      {"`detectTarget`", [](Sizes const& s) { return detect(photos(s.image)[0]); }},
      {"`detectTarget`, 16 bits", [](Sizes const& s) { return detect(deepPhoto(s.image)); }},
      {"`calibrateCamera`", calibrateCamera},
      {"`calibrateScanner`, for every view in work", measureScannerView},
      {"`calibrateStereo`, per pixel of both cameras", calibrateStereo},
      {"`calibrateLaser`", calibrateLaser},
      {"`scanLaser`", scanLaser},
      {"`applyFilters`, `DzFilter` and `OutlierFilter`, per point", applyFilters},
      {"`fitSphere`, per point",
       [](Sizes const& s) {
         mv::PointCloud const cloud = cap(s);
         return workingBytes(cloud.pointCount(), [&] { return sizeOf(mv::fitSphere(cloud)); });
       }},
      {"`fitPlane`, per point",
       [](Sizes const& s) {
         mv::PointCloud const cloud = cap(s);
         return workingBytes(cloud.pointCount(), [&] { return sizeOf(mv::fitPlane(cloud)); });
       }},
      {"`PointCloud::load`", load},
      {"`PointCloud::save`", save},
  };
}

} // namespace vorn::bench
