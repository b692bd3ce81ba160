// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <filesystem>
#include <iterator>

#include <opencv2/core.hpp>

#include <vorn/mv/calib/camera_calib_data.hpp>
#include <vorn/mv/sl/patterns.hpp>
#include <vorn/mv/sl/projector_points.hpp>
#include <vorn/mv/sl/scanner_type.hpp>

#include "sl/coding/stripe_code.hpp"
#include "tools/calibration/calibration_session.hpp"
#include "tools/files/image_files.hpp"

namespace vorn::tools {

using mv::CameraCalibData;
using mv::Sl3dScanner;

namespace {

/// Projector points from which on a view says something about the projector.
constexpr std::size_t leastProjectorPoints = 20;

/// A sequence and the axis of the projector that it codes.
struct CodedAxis {
  char const* prefix;
  mv::scanner::ScannerType::Item type;
  mv::sl::StripeCode code;
  int cv::Size::*extent;
};

CodedAxis const columnAxis = {"columns", mv::scanner::ScannerType::Horizontal, mv::sl::columnCode,
                              &cv::Size::width};
CodedAxis const rowAxis = {"rows", mv::scanner::ScannerType::Vertical, mv::sl::rowCode, &cv::Size::height};

cv::Mat decodeAxis(CodedAxis const& axis, std::string const& folder, cv::Size const& camera,
                   cv::Size const& projector) {
  std::vector<cv::Mat> const images = readSequence(folder, axis.prefix);
  if (images.empty()) {
    throw calibrationFailure("there is no " + std::string(axis.prefix) + "_00.png");
  }
  cv::Size coded = projector;
  if (coded.empty()) {
    coded = {16, 16};
    // What is wrong with a stack of too few or too many images, decoding says.
    int const planes =
        std::clamp(mv::sl::StripeCode::planesIn(images.size()), 1, mv::sl::StripeCode::maxPlanes);
    coded.*axis.extent = axis.code.largestResolution(planes);
  }
  Sl3dScanner decoder;
  decoder["ScannerType"] = mv::scanner::ScannerType(axis.type);
  // Dots are fitted over their own pixels: filled holes would pass for measured ones, and on black ground
  // each dot is a segment of its own.
  decoder["MaxFillRadius"] = 0;
  decoder["MinSegmentSize"] = 20;
  decoder["MaxGrayLevel"] = 200;
  decoder.getCameraModel().setResolution(camera);
  decoder.getProjectorModel().setResolution(coded);
  return decoder.decode(images);
}

/// What the views have in common and grows while they are read.
struct Extents {
  cv::Size camera;
  /// Largest decoded coordinates.
  cv::Point2f farthest;
  /// Pictures of either sequence.
  std::size_t columnImages = 0;
  std::size_t rowImages = 0;
};

/// A value that all but a few of the decoded pixels stay below.
float farthestOf(cv::Mat const& map) {
  std::vector<float> values;
  for (int y = 0; y < map.rows; ++y) {
    std::copy_if(map.ptr<float>(y), map.ptr<float>(y) + map.cols, std::back_inserter(values),
                 [](float v) { return v >= 0; });
  }
  if (values.empty()) {
    return 0;
  }
  auto const nth = values.begin() + static_cast<std::ptrdiff_t>(values.size() - 1 - values.size() / 2000);
  std::nth_element(values.begin(), nth, values.end());
  return *nth;
}

/// The dots that the projector's light reaches, in its pixels.
ViewPoints findProjectorPoints(ViewPoints const& camera, std::string const& folder,
                               CalibrationSettings const& settings, Extents& extents) {
  cv::Mat const columns = decodeAxis(columnAxis, folder, extents.camera, settings.projector);
  cv::Mat const rows = decodeAxis(rowAxis, folder, extents.camera, settings.projector);
  extents.farthest.x = std::max(extents.farthest.x, farthestOf(columns));
  extents.farthest.y = std::max(extents.farthest.y, farthestOf(rows));
  extents.columnImages = findSequence(folder, columnAxis.prefix).size();
  extents.rowImages = findSequence(folder, rowAxis.prefix).size();
  std::vector<cv::Point2f> points;
  std::vector<std::uint8_t> valid;
  mv::find_projector_points(columns, rows, camera.imgPnts, points, valid);
  ViewPoints projector;
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (valid[i] != 0) {
      projector.imgPnts.push_back(points[i]);
      projector.objPnts.push_back(camera.objPnts[i]);
    }
  }
  if (projector.imgPnts.size() < leastProjectorPoints) {
    throw calibrationFailure("the projector's light reaches only " +
                             std::to_string(projector.imgPnts.size()) + " dots");
  }
  return projector;
}

/// The least usual projector resolution that shows what was decoded and needs as many pictures, or else the
/// decoded range itself. It bounds the range of valid coordinates; the calibration hardly depends on it.
cv::Size guessProjector(Extents const& extents) {
  static std::vector<cv::Size> const usual = {
      {320, 240},   {480, 320},   {608, 684},   {640, 360},   {640, 400},   {640, 480},
      {800, 480},   {800, 600},   {848, 480},   {854, 480},   {912, 570},   {912, 1140},
      {1024, 600},  {1024, 768},  {1140, 912},  {1280, 720},  {1280, 800},  {1280, 960},
      {1280, 1024}, {1366, 768},  {1400, 1050}, {1600, 1200}, {1920, 1080}, {1920, 1200},
      {2048, 1080}, {2560, 1440}, {2560, 1600}, {3840, 2160}, {4096, 2160}};
  auto const fits = [](int extent, std::size_t images, CodedAxis const& axis, float farthest) {
    bool const isCoded = axis.code.isMadeFor(mv::sl::StripeCode::planesIn(images), extent);
    constexpr float slack = 0.5F;
    return static_cast<float>(extent) > farthest + slack && isCoded;
  };
  cv::Size best;
  for (cv::Size const& size : usual) {
    if (fits(size.width, extents.columnImages, columnAxis, extents.farthest.x) &&
        fits(size.height, extents.rowImages, rowAxis, extents.farthest.y) &&
        (best.empty() || size.area() < best.area())) {
      best = size;
    }
  }
  if (!best.empty()) {
    return best;
  }
  constexpr int step = 8;
  auto const rounded = [](float farthest) { return (static_cast<int>(farthest) / step + 1) * step; };
  return {rounded(extents.farthest.x), rounded(extents.farthest.y)};
}

} // namespace

ScannerCalibration calibrateScanner(std::string const& folder, CalibrationSettings const& settings) {
  ScannerCalibration calibration;
  Extents extents;
  calibration.views = readViews(folder, [&](std::filesystem::path const& pose, TargetView& view) {
    view.devices = {findTarget(pose / "target.png", settings.detector, extents.camera)};
    view.devices.push_back(findProjectorPoints(view.devices[0], pose.string(), settings, extents));
  });
  calibration.isProjectorGuessed = settings.projector.empty();
  cv::Size const projector = calibration.isProjectorGuessed ? guessProjector(extents) : settings.projector;
  calibrateViews(calibration.views, {"camera", "projector"}, [&] {
    CameraCalibData cameraData = calibData(calibration.views, 0);
    CameraCalibData projectorData = calibData(calibration.views, 1);
    Sl3dScanner scanner;
    scanner.getCameraModel().setResolution(extents.camera);
    scanner.getProjectorModel().setResolution(projector);
    scanner.calib(cameraData, projectorData);
    requireDifferentSides(cameraData);
    fillResiduals(calibration.views, 0, scanner.getCameraModel(), cameraData);
    fillResiduals(calibration.views, 1, scanner.getProjectorModel(), projectorData);
    calibration.scanner = scanner;
  });
  calibration.devices = {{"camera", calibration.scanner.getCameraModel()},
                         {"projector", calibration.scanner.getProjectorModel()}};
  calibration.rotationDefect = agreedRotationDefect(calibration.scanner.getTransform());
  return calibration;
}

} // namespace vorn::tools
