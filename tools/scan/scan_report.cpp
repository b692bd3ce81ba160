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
    {mv::PixelReason::Clipped, "Clipped"},
    {mv::PixelReason::Dark, "Dark"},
    {mv::PixelReason::LowContrast, "LowContrast"},
    {mv::PixelReason::NoCode, "NoCode"},
    {mv::PixelReason::Edge, "Edge"},
    {mv::PixelReason::SmallPiece, "SmallPiece"},
    {mv::PixelReason::NoPoint, "NoPoint"}};

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

nlohmann::json scanReport(mv::ScanResult const& result) {
  nlohmann::json report;
  report["Pixels"] = result.counts.pixels;
  report["Decoded"] = result.counts.decoded;
  report["Points"] = result.counts.points;
  for (auto const& [reason, name] : reasonNames) {
    report["NotMeasured"][name] = result.counts.of(reason);
  }
  report["Times"] = {{"Decode", result.times.decode}, {"Triangulate", result.times.triangulate}};
  if (result.counts.points > 0) {
    cv::Point3f const origin = result.cloud.boxOrigin();
    cv::Vec3f const dims = result.cloud.boxDims();
    report["Box"] = {{"Origin", {origin.x, origin.y, origin.z}}, {"Size", {dims[0], dims[1], dims[2]}}};
  }
  return report;
}

} // namespace vorn::tools
