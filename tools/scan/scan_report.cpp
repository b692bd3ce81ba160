// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/scan_report.hpp"

#include <algorithm>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include <vorn/mv/sl/scanner_type.hpp>

namespace vorn::tools {

namespace {

constexpr std::pair<mv::PixelReason, char const*> reasonNames[] = {
    {mv::PixelReason::Clipped, "clipped"},
    {mv::PixelReason::Dark, "dark"},
    {mv::PixelReason::LowContrast, "lowContrast"},
    {mv::PixelReason::NoCode, "noCode"},
    {mv::PixelReason::Edge, "edge"},
    {mv::PixelReason::SmallPiece, "smallPiece"},
    {mv::PixelReason::NoPoint, "noPoint"},
    {mv::PixelReason::Contradiction, "contradiction"}};

} // namespace

std::string sequencePrefix(mv::Sl3dScanner const& scanner) {
  IEnum const& type = scanner.getProperty("ScannerType");
  return type.getIndex() == mv::scanner::ScannerType::Horizontal ? "columns" : "rows";
}

std::string reasonText(mv::ScanCounts const& counts) {
  std::vector<std::pair<std::size_t, char const*>> found;
  for (auto const& [reason, name] : reasonNames) {
    if (counts.of(reason) > 0) {
      found.emplace_back(counts.of(reason), name);
    }
  }
  std::stable_sort(found.begin(), found.end(),
                   [](auto const& a, auto const& b) { return a.first > b.first; });
  std::string text;
  for (auto const& [count, name] : found) {
    text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + name;
  }
  return text;
}

nlohmann::json notMeasuredReport(mv::ScanCounts const& counts) {
  nlohmann::json report;
  for (auto const& [reason, name] : reasonNames) {
    report[name] = counts.of(reason);
  }
  return report;
}

nlohmann::json boxReport(mv::PointCloud const& cloud) {
  cv::Point3f const origin = cloud.boxOrigin();
  cv::Vec3f const size = cloud.boxDims();
  return {{"origin", {origin.x, origin.y, origin.z}}, {"size", {size[0], size[1], size[2]}}};
}

nlohmann::json scanReport(mv::ScanResult const& result) {
  nlohmann::json report;
  report["pixels"] = result.counts.pixels;
  report["decoded"] = result.counts.decoded;
  report["points"] = result.counts.points;
  if (result.counts.smoothed > 0) {
    report["smoothed"] = result.counts.smoothed;
  }
  report["notMeasured"] = notMeasuredReport(result.counts);
  report["times"] = {{"decode", result.times.decode}, {"triangulate", result.times.triangulate}};
  if (result.counts.points > 0) {
    report["box"] = boxReport(result.cloud);
  }
  return report;
}

} // namespace vorn::tools
