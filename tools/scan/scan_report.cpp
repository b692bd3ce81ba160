// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/scan_report.hpp"

#include <utility>

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
