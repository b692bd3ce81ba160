// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/pattern_scan.hpp"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <optional>
#include <utility>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/timer.hpp>
#include <vorn/mv/calib/calibration_covariance.hpp>
#include <vorn/mv/scanner/pattern_scanner.hpp>
#include <vorn/mv/scanner/scan_fields.hpp>

#include "sl/coding/stripe_code.hpp"
#include "tools/commands/property_options.hpp"
#include "tools/files/camera_input.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/input_file.hpp"
#include "tools/files/json_file.hpp"
#include "tools/files/named_images.hpp"
#include "tools/files/pattern_folder.hpp"
#include "tools/progress.hpp"
#include "tools/report/figure_files.hpp"
#include "tools/scan/pattern_doubts.hpp"
#include "tools/scan/preview.hpp"
#include "tools/scan/scan_page.hpp"
#include "tools/scan/scan_report.hpp"
#include "tools/scan/sequence_count.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

/// Of what the map holds, in the singular.
std::string axisName(mv::Sl3dScanner const& scanner) {
  return sequencePrefix(scanner) == "rows" ? "row" : "column";
}

bool isMesh(std::string const& path) {
  return lowerCaseEnding(path) == ".stl";
}

/// The points of a scan, with the surface where the file is to hold one.
graphic::GraphicObject objectOf(std::string const& path, mv::ScanResult const& result) {
  graphic::GraphicObject object = result.cloud.getGraphicObject(true);
  if (isMesh(path)) {
    cv::Mat const present = result.cloud.state() == 0;
    addSurface(object, result.xyz, present);
  }
  return object;
}

/// Fills the page with a scan, as points, or as the surface where that is written.
void fillPage(ScanOptions const& options, mv::ScanResult const& result, mv::Sl3dScanner const& scanner,
              Page& page) {
  page.title = "Scan";
  page.subtitle = folderName(options.folder);
  describeScan(page, result, scanner, axisName(scanner));
  std::vector<cv::Vec3i> triangles;
  if (isMesh(options.out)) {
    triangles = std::move(objectOf(options.out, result).triangles());
  }
  page.add(pageCloud(result, std::move(triangles)));
}

void writeMap(ScanOptions const& options, mv::ScanResult const& result, std::string const& axis) {
  if (isTiff(options.map)) {
    writeImage(options.map, result.map);
    return;
  }
  // The periods of the two coded axes differ; either shows as bands.
  constexpr auto period = static_cast<float>(mv::sl::rowCode.period);
  FigureOptions look = options.look;
  look.range.reset(); // of the depths
  writeFigure(options.map, drawDecodedMap(result.map, period, axis, "decoded " + axis + "s", look),
              look.drawSettings());
}

/// Images of the scanner's own sequence, or of the set that a description in the folder tells of.
struct Captured {
  std::vector<cv::Mat> images;
  std::optional<PatternFolder> described;
};

/// Notes what a scan reads and writes, before it does.
void declareFiles(ScanOptions const& options, Captured const& captured, std::string const& prefix,
                  Report& report) {
  std::vector<std::string> inputs{options.calibration};
  auto const take = [&](std::vector<std::string> const& files) {
    inputs.insert(inputs.end(), files.begin(), files.end());
  };
  if (captured.described) {
    inputs.push_back(captured.described->description);
    take(captured.described->paths);
    if (!options.assignments.empty()) {
      report.warn("images of a pattern set are decoded without the scanner's properties; of those given "
                  "with --set the ones of decoding have no effect");
    }
  } else if (!options.names.empty()) {
    take(namedFiles(options.folder, options.names));
  } else {
    for (NumberedFile const& file : findSequence(options.folder, prefix)) {
      inputs.push_back(file.path);
    }
  }
  report.declare(inputs, {options.out, options.xyz, options.map, options.preview});
}

/// Where pictures of a sequence may be meant that the folder does not have.
std::string hint(std::string const& folder, std::string const& prefix) {
  std::string const inner = (std::filesystem::path(folder) / "scan").string();
  if (std::filesystem::is_directory(inner) && !findSequence(inner, prefix).empty()) {
    return "; " + inner + " has";
  }
  for (auto const& entry : std::filesystem::directory_iterator(folder)) {
    std::string const name = entry.path().filename().string();
    std::string const ending = lowerCaseEnding(name);
    if (name.rfind("truth", 0) != 0 && (ending == ".png" || isTiff(name) || ending == ".bmp")) {
      return ", but " + name;
    }
  }
  return "";
}

/// @param projector its pixels, which tell how many images there must be
void readCaptured(ScanOptions const& options, std::string const& prefix, cv::Size const& projector,
                  Captured& captured, Report& report) {
  captured.images = watched([&](Observer* bar) {
    return captured.described       ? readPatternImages(*captured.described, bar)
           : !options.names.empty() ? readNamedImages(namedFiles(options.folder, options.names), bar)
                                    : readSequence(options.folder, prefix, readMeasuredImage, bar);
  });
  if (captured.images.empty()) {
    throw Exception(options.folder + " has no pictures " + prefix + "_00.png, " + prefix + "_01.png, ..." +
                        hint(options.folder, prefix),
                    nullptr, 0, "scan");
  }
  if (!captured.described) {
    requireImageCount(prefix, captured.images.size(), projector, options.folder, "scan");
  }
  if (isLikeMosaic(captured.images.front())) {
    report.warn("the images look like the raw pixels of a colour sensor (a Bayer mosaic), which are taken as "
                "grey: make grey or colour pictures of them first");
  }
}

/// Says how well columns and rows agree, where a set codes both.
void note(mv::EpipolarFigures const& agreement, Report& report) {
  if (agreement.pixels == 0) {
    return;
  }
  report["epipolar"] = {{"pixels", agreement.pixels},       {"rejected", agreement.rejected},
                        {"median", agreement.median},       {"rms", agreement.rms},
                        {"deviation", agreement.deviation}, {"foretold", agreement.foretold}};
  constexpr std::size_t oneIn = 50;
  if (agreement.rejected > agreement.pixels / oneIn) {
    report.warn(std::to_string(agreement.rejected) + " of " + std::to_string(agreement.pixels) +
                " pixels have a column and a row that are not of one point: was the projector moved since it "
                "was calibrated, or are columns and rows exchanged?");
  }
}

mv::ScanResult scanOf(mv::Sl3dScanner& scanner, Captured const& captured, mv::ScanSettings const& settings,
                      Report& report) {
  if (!captured.described) {
    mv::ScanResult result =
        watched([&](Observer* bar) { return mv::scan(scanner, captured.images, settings, bar); });
    if (result.counts.points > 0) { // else the error says the first
      noteDoubts(result.doubts, report);
    }
    return result;
  }
  mv::PatternScanSettings described;
  described.decode.correctsStaircase = settings.correctsStaircase;
  described.decode.whiteLevel = settings.whiteLevel;
  described.scan = settings;
  mv::PatternScanner patterns(captured.described->set, scanner, described);
  mv::PatternScanResult const result =
      watched([&](Observer* bar) { return patterns.scan(captured.images, bar); });
  noteDoubts(result.doubts, report);
  note(result.agreement, report);
  return result;
}

/// Before long work: that there is a file to keep numbers of points in, and what they are made of.
void checkFields(ScanOptions const& options, mv::Sl3dScanner const& scanner) {
  std::string const ending = lowerCaseEnding(options.out);
  if (!options.fields.empty() && (options.out.empty() || ending == ".stl" || ending == ".obj")) {
    throw Exception("--fields needs --out with a file that keeps numbers of points, such as .ply", nullptr, 0,
                    "scan");
  }
  bool const isCalibrationWanted =
      std::find(options.fields.begin(), options.fields.end(), "sigma_calibration") != options.fields.end();
  if (isCalibrationWanted && scanner.getCovariance().isEmpty()) {
    throw Exception(options.calibration + " has no \"Covariance\", which sigma_calibration is reckoned from",
                    nullptr, 0, "scan");
  }
}

void checkOutputs(ScanOptions const& options, mv::Sl3dScanner const& scanner) {
  checkFigurePath(options.preview);
  checkFigurePath(options.map);
  if (!options.xyz.empty() && !isTiff(options.xyz)) {
    throw Exception("Points are stored as .tiff, not to " + options.xyz, nullptr, 0, "scan");
  }
  if (!options.out.empty()) {
    checkGraphicPath(options.out);
  }
  checkFields(options, scanner);
}

bool isTextured(mv::Sl3dScanner const& scanner) {
  return scanner.getProperty("EnableTexture").getValue().toBool();
}

mv::ScanSettings settingsOf(ScanOptions const& options, mv::Sl3dScanner const& scanner, bool isPageWanted) {
  mv::ScanSettings settings;
  settings.makeTexture = isTextured(scanner) || isPageWanted;
  settings.makeModulation = isPageWanted || !options.fields.empty();
  settings.makeSigma = settings.makeModulation;
  settings.correctsStaircase = !options.keepsStaircase;
  settings.smoothRadius = options.smoothRadius;
  settings.whiteLevel = options.whiteLevel;
  return settings;
}

/// @throws Exception for a scan without a point, after the page that shows why
void requirePoints(ScanOptions const& options, mv::ScanResult const& result, mv::Sl3dScanner const& scanner,
                   Report& report) {
  if (result.counts.points > 0) {
    return;
  }
  if (report.isPageWanted()) {
    report.add(scanReport(result));
    fillPage(options, result, scanner, report.page());
    report.writePage();
  }
  throw Exception("None of the " + std::to_string(result.counts.pixels) + " pixels of " + options.folder +
                      " has a point: " + reasonText(result.counts) +
                      (result.doubts.empty() ? "" : "; " + result.doubts[0].text),
                  nullptr, 0, "scan");
}

void writeOutputs(ScanOptions const& options, mv::ScanResult const& result, mv::Sl3dScanner const& scanner) {
  if (!options.out.empty()) {
    writeGraphic(options.out, objectOf(options.out, result));
  }
  if (!options.xyz.empty()) {
    writeImage(options.xyz, result.xyz);
  }
  if (!options.map.empty()) {
    writeMap(options, result, axisName(scanner));
  }
  if (!options.preview.empty()) {
    writeFigure(options.preview,
                drawRelief(result.xyz, result.cloud.texture(),
                           scanTitle(options.folder, result.counts.points), options.look),
                options.look.drawSettings());
  }
}

} // namespace

void runPatternScan(ScanOptions const& options, Report& report) {
  checkInputFile(options.calibration);
  mv::Sl3dScanner scanner;
  loadScanner(options.calibration, scanner);
  applyAssignments(scanner, options.assignments);
  Captured captured;
  if (options.names.empty() && fs::exists(patternSetPath(options.folder))) {
    captured.described = readPatternFolder(options.folder, "");
  }
  declareFiles(options, captured, sequencePrefix(scanner), report);
  report.addProperties(scanner);
  checkOutputs(options, scanner);

  Timer timer;
  readCaptured(options, sequencePrefix(scanner), scanner.getProjectorModel().getResolution(), captured,
               report);
  double const readTime = timer.toc();
  mv::ScanSettings const settings = settingsOf(options, scanner, report.isPageWanted());
  mv::ScanResult result = scanOf(scanner, captured, settings, report);
  requirePoints(options, result, scanner, report);
  if (report.isPageWanted()) {
    fillPage(options, result, scanner, report.page());
    if (!isTextured(scanner)) { // the page alone has colours then
      result.cloud.texture().release();
    }
  }
  if (!options.fields.empty()) {
    watched([&](Observer* bar) { mv::addScanFields(result, scanner, options.fields, bar); });
  }
  timer.tic();
  writeOutputs(options, result, scanner);
  double const writeTime = timer.toc();

  report.add(scanReport(result));
  report["images"] = captured.images.size();
  if (captured.images.front().depth() != CV_8U && result.whiteLevel > 0.0) {
    report["whiteLevel"] = result.whiteLevel;
  }
  if (result.staircase > 0.0) {
    report["staircase"] = result.staircase;
  }
  report["times"]["read"] = readTime;
  report["times"]["write"] = writeTime;
  std::cout << result.counts.points << " points from " << captured.images.size() << " images of "
            << result.map.cols << " x " << result.map.rows << '\n';
}

} // namespace vorn::tools
