// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>
#include <opencv2/core/mat.hpp>

#include <vorn/mv/pointcloud/point_cloud.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

namespace vorn::tools {

/// What a scan gave, and how long each stage took.
struct ScanResult {
  cv::Mat_<float> map;          ///< decoded projector coordinates, -1 where there is none
  cv::Mat_<cv::Vec3f> xyz;      ///< camera frame, mm; NaN where nothing was measured
  mv::PointCloud cloud;         ///< the same, organized, the unmeasured points removed for good
  int decodedCount = 0;         ///< pixels of `map` that are not -1
  int pointCount = 0;           ///< points of `cloud`
  double decodeTime = 0.0;      ///< ms
  double triangulateTime = 0.0; ///< ms
};

/// "columns" or "rows": which sequence of images the scanner decodes, by its "ScannerType".
std::string sequencePrefix(mv::Sl3dScanner const& scanner);

/// From captured images to points.
/// @param images in the order of the pattern sequence
/// @throws Exception when the scanner is not calibrated or the images do not suit it
ScanResult runScan(mv::Sl3dScanner& scanner, std::vector<cv::Mat> const& images);

/// The figures of a scan: counts, times, box.
nlohmann::json scanReport(ScanResult const& result);

} // namespace vorn::tools
