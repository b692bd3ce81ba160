// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/laser_scan.hpp"

#include <filesystem>
#include <iostream>
#include <utility>

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/line_scanner.hpp>

#include "tools/commands/laser_options.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/input_file.hpp"
#include "tools/files/json_file.hpp"
#include "tools/progress.hpp"
#include "tools/report/figure_files.hpp"
#include "tools/report/page_tables.hpp"
#include "tools/scan/preview.hpp"

namespace vorn::tools {

namespace {

/// Fills the page with a laser scan, whose figures are those of the report.
void fillPage(ScanOptions const& options, mv::LaserScanResult const& scan, Report& report) {
  Page& page = report.page();
  page.title = "Laser scan";
  page.subtitle = folderName(options.folder);
  page.findings.push_back({scan.emptyImages > 0 ? PageFinding::Weight::Warning : PageFinding::Weight::Note,
                           countText(scan.points) + " points from " + std::to_string(scan.images) +
                               " images; " + std::to_string(scan.emptyImages) +
                               " of them without a laser line.",
                           ""});
  std::vector<cv::Vec3f> points(scan.cloud.points());
  FigureOptions look;
  look.isLight = true;
  page.add("Depth", "Seen along z, coloured by distance.", drawCloud(points, {}, "", look));
  PageCloud cloud;
  cloud.name = "points";
  cloud.points = std::move(points);
  page.add(cloud);
}

/// What a laser scan reads, as far as it is there.
std::vector<std::string> inputsOf(ScanOptions const& options) {
  std::vector<std::string> inputs{options.calibration, options.motion.encoder};
  std::vector<std::string> const files = laserFiles(options.folder, options.lines);
  inputs.insert(inputs.end(), files.begin(), files.end());
  std::string const stage = stagePath(options.folder);
  if (options.motion.step.empty() && std::filesystem::exists(stage)) {
    inputs.push_back(stage);
  }
  return inputs;
}

} // namespace

void runLaserScan(ScanOptions const& options, Report& report) {
  checkInputFile(options.calibration);
  mv::LineScanner scanner;
  load(options.calibration, scanner);
  report.declare(inputsOf(options), {options.out, options.preview});
  report.addProperties(scanner);
  checkFigurePath(options.preview);
  if (!options.out.empty()) {
    checkGraphicPath(options.out);
    if (lowerCaseEnding(options.out) == ".stl") {
      throw Exception("A laser scan is a cloud without triangles: write it as .ply or .obj", nullptr, 0,
                      "scan");
    }
  }
  mv::LaserScanSettings settings;
  settings.line.minContrast = options.contrast;
  settings.color = parseLaserColor(options.laserColor);
  settings.whiteLevel = options.whiteLevel;
  mv::LaserScanResult const scan = watched([&](Observer* bar) {
    return scanLaser(options.folder, scanner, options.motion, settings, bar, options.lines);
  });
  if (!options.out.empty()) {
    writeGraphic(options.out, scan.cloud.getGraphicObject(false));
  }
  if (!options.preview.empty()) {
    writeFigure(options.preview,
                drawCloud(std::vector<cv::Vec3f>(scan.cloud.points()), {},
                          scanTitle(options.folder, scan.points), options.look),
                options.look.drawSettings());
  }
  report.add(scanReport(scan));
  if (report.isPageWanted()) {
    fillPage(options, scan, report);
  }
  if (scan.ambiguousImages > 0) {
    report.warn(std::to_string(scan.ambiguousImages) + " of " + std::to_string(scan.images) +
                " images have two stripes side by side of which neither is the brighter one all along, and "
                "were left out");
  }
  std::cout << scan.points << " points from " << scan.images << " images";
  if (scan.emptyImages > 0) {
    std::cout << ", " << scan.emptyImages << " of them without a laser line";
  }
  std::cout << '\n';
}

} // namespace vorn::tools
