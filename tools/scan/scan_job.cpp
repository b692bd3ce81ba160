// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/scan_job.hpp"

#include <limits>

#include <nlohmann/json.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/timer.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/sl/scanner_type.hpp>

#include "tools/commands/size_option.hpp"
#include "tools/muted_output.hpp"

namespace vorn::tools {

namespace {

void checkImages(mv::Sl3dScanner const& scanner, std::vector<cv::Mat> const& images) {
  if (!scanner.isCalibrated()) {
    throw Exception("The scanner is not calibrated: it has no models with an error below half a pixel",
                    nullptr, 0, "scan");
  }
  cv::Size const expected = scanner.getCameraModel().getResolution();
  if (!images.empty() && images.front().size() != expected) {
    throw Exception("The images are " + sizeText(images.front().size()) + ", but the scanner's camera has " +
                        sizeText(expected),
                    nullptr, 0, "scan");
  }
}

/// Puts NaN in place of the markers of unmeasured points.
void clearUnmeasured(cv::Mat_<cv::Vec3f>& xyz) {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  for (cv::Vec3f& p : xyz) {
    if (!(p[2] > 0.0F)) {
      p = cv::Vec3f(nan, nan, nan);
    }
  }
}

} // namespace

std::string sequencePrefix(mv::Sl3dScanner const& scanner) {
  IEnum const& type = scanner.getProperty("ScannerType");
  return type.getIndex() == mv::scanner::ScannerType::Horizontal ? "columns" : "rows";
}

ScanResult runScan(mv::Sl3dScanner& scanner, std::vector<cv::Mat> const& images) {
  checkImages(scanner, images);
  ScanResult result;
  MutedOutput const muted;
  Timer timer;
  result.map = scanner.decode(images);
  result.decodeTime = timer.toc();
  result.decodedCount = cv::countNonZero(result.map >= 0.0F);

  timer.tic();
  scanner.triangulate(result.map, result.xyz, cv::Rect(cv::Point(0, 0), result.map.size()));
  result.triangulateTime = timer.toc();
  clearUnmeasured(result.xyz);

  cv::Mat_<cv::Vec3b> texture;
  if (scanner.getProperty("EnableTexture").getValue().toBool()) {
    cv::cvtColor(scanner.getTexture(), texture, cv::COLOR_GRAY2BGR);
  }
  result.cloud = mv::PointCloud(result.xyz, true, cv::Mat_<cv::Vec3f>(), texture);
  cv::Mat_<uchar>& state = result.cloud.state();
  constexpr uchar removedForGood = 255;
  for (int y = 0; y < state.rows; ++y) {
    for (int x = 0; x < state.cols; ++x) {
      if (std::isnan(result.xyz(y, x)[2])) {
        state(y, x) = removedForGood;
      }
    }
  }
  result.cloud.calcBoundingBox();
  result.pointCount = static_cast<int>(result.cloud.presentCount());
  return result;
}

nlohmann::json scanReport(ScanResult const& result) {
  nlohmann::json report;
  report["Pixels"] = result.map.total();
  report["Decoded"] = result.decodedCount;
  report["Points"] = result.pointCount;
  report["Times"] = {{"Decode", result.decodeTime}, {"Triangulate", result.triangulateTime}};
  if (result.pointCount > 0) {
    cv::Point3f const origin = result.cloud.boxOrigin();
    cv::Vec3f const dims = result.cloud.boxDims();
    report["Box"] = {{"Origin", {origin.x, origin.y, origin.z}}, {"Size", {dims[0], dims[1], dims[2]}}};
  }
  return report;
}

} // namespace vorn::tools
