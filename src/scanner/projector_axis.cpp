// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/projector_axis.hpp"

#include <algorithm>
#include <iterator>
#include <string>

#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "core/median.hpp"
#include "scanner/calibration/target_views.hpp"
#include "scanner/scanner_access.hpp"

namespace vorn::mv {

using sl::StripeCode;

ProjectorAxis const columnAxis = {"columns", scanner::ScannerType::Horizontal, sl::columnCode,
                                  &cv::Size::width};
ProjectorAxis const rowAxis = {"rows", scanner::ScannerType::Vertical, sl::rowCode, &cv::Size::height};

sl::CodedAxis codedAxis(ProjectorAxis const& axis, std::size_t images, cv::Size const& projector) {
  // What is wrong with a stack of too few or too many images, decoding says.
  int const planes = std::clamp(StripeCode::planesIn(images), 1, StripeCode::maxPlanes);
  return {projector.empty() ? axis.code.largestResolution(planes) : projector.*axis.extent, axis.code};
}

cv::Mat_<float> decodeAxis(ProjectorAxis const& axis, sl::GreyStack const& stack, cv::Size const& projector,
                           Progress const& progress) {
  std::vector<cv::Mat> const& images = stack.images;
  if (images.empty()) {
    throw calibrationFailure("there are no images of the " + std::string(axis.name));
  }
  cv::Size coded = projector;
  if (coded.empty()) {
    coded = {16, 16};
    coded.*axis.extent = codedAxis(axis, images.size(), projector).resolution;
  }
  Sl3dScanner decoder;
  decoder["ScannerType"] = scanner::ScannerType(axis.type);
  // Dots are fitted over their own pixels: filled holes would pass for measured ones, and on black ground
  // each dot is a segment of its own.
  decoder["MaxFillRadius"] = 0;
  decoder["MinSegmentSize"] = 20;
  decoder["MaxGrayLevel"] = 200;
  decoder.getCameraModel().setResolution(images.front().size());
  decoder.getProjectorModel().setResolution(coded);
  return ScannerAccess::decode(decoder, stack, sl::ReasonMap::Leave, progress).coordinates;
}

void DecodedExtent::add(DecodedExtent const& other) {
  farthest = std::max(farthest, other.farthest);
  images = other.images;
}

float farthestOf(cv::Mat_<float> const& map) {
  std::vector<float> values;
  for (int y = 0; y < map.rows; ++y) {
    std::copy_if(map[y], map[y] + map.cols, std::back_inserter(values), [](float v) { return v >= 0; });
  }
  if (values.empty()) {
    return 0;
  }
  return rankedAmong(values, values.size() - 1 - values.size() / 2000);
}

cv::Size guessProjector(DecodedExtent const& columns, DecodedExtent const& rows) {
  static std::vector<cv::Size> const usual = {
      {320, 240},   {480, 320},   {608, 684},   {640, 360},   {640, 400},   {640, 480},
      {800, 480},   {800, 600},   {848, 480},   {854, 480},   {912, 570},   {912, 1140},
      {1024, 600},  {1024, 768},  {1140, 912},  {1280, 720},  {1280, 800},  {1280, 960},
      {1280, 1024}, {1366, 768},  {1400, 1050}, {1600, 1200}, {1920, 1080}, {1920, 1200},
      {2048, 1080}, {2560, 1440}, {2560, 1600}, {3840, 2160}, {4096, 2160}};
  auto const fits = [](int extent, DecodedExtent const& decoded, ProjectorAxis const& axis) {
    bool const isCoded = axis.code.isMadeFor(StripeCode::planesIn(decoded.images), extent);
    constexpr float slack = 0.5F;
    return static_cast<float>(extent) > decoded.farthest + slack && isCoded;
  };
  cv::Size best;
  for (cv::Size const& size : usual) {
    if (fits(size.width, columns, columnAxis) && fits(size.height, rows, rowAxis) &&
        (best.empty() || size.area() < best.area())) {
      best = size;
    }
  }
  if (!best.empty()) {
    return best;
  }
  constexpr int step = 8;
  auto const rounded = [](float farthest) { return (static_cast<int>(farthest) / step + 1) * step; };
  return {rounded(columns.farthest), rounded(rows.farthest)};
}

} // namespace vorn::mv
