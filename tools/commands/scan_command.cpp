// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/timer.hpp>
#include <vorn/mv/calib/calibration_covariance.hpp>
#include <vorn/mv/calib/line_scanner.hpp>
#include <vorn/mv/scanner/pattern_scanner.hpp>
#include <vorn/mv/scanner/scan_fields.hpp>

#include "sl/coding/stripe_code.hpp"
#include "tools/commands/commands.hpp"
#include "tools/commands/laser_options.hpp"
#include "tools/commands/property_options.hpp"
#include "tools/commands/white_level_option.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/input_file.hpp"
#include "tools/files/json_file.hpp"
#include "tools/files/named_images.hpp"
#include "tools/files/output_path.hpp"
#include "tools/files/pattern_folder.hpp"
#include "tools/progress.hpp"
#include "tools/report/figure_files.hpp"
#include "tools/report/figure_options.hpp"
#include "tools/report/page_options.hpp"
#include "tools/report/page_tables.hpp"
#include "tools/report/work.hpp"
#include "tools/scan/laser_folder.hpp"
#include "tools/scan/preview.hpp"
#include "tools/scan/scan_page.hpp"
#include "tools/scan/scan_report.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

struct ScanOptions {
  std::string folder;
  std::string calibration;
  std::string out;
  std::string preview;
  std::string map;
  std::string xyz;
  FigureOptions look;
  PageOptions page;
  bool isLaser = false;
  StageMotion motion;
  double contrast = mv::LaserLineOptions().minContrast;
  std::vector<std::string> names; ///< of the images; none for columns_00.png ...
  std::string laserColor = "auto";
  std::vector<std::string> fields;
  std::vector<std::string> assignments;
  bool keepsStaircase = false;
  int smoothRadius = 0;
  double whiteLevel = 0.0;
};

bool isMesh(std::string const& path) {
  return lowerCaseEnding(path) == ".stl";
}

void writeCloud(std::string const& path, mv::ScanResult const& result) {
  graphic::GraphicObject object = result.cloud.getGraphicObject(true);
  if (isMesh(path)) {
    cv::Mat const present = result.cloud.state() == 0;
    addSurface(object, result.xyz, present);
  }
  writeGraphic(path, object);
}

/// Fills the page with a scan, as points, or as the surface where that is written.
void fillPage(ScanOptions const& options, mv::ScanResult const& result, mv::Sl3dScanner const& scanner,
              Page& page) {
  page.title = "Scan";
  page.subtitle = fs::weakly_canonical(options.folder).filename().string();
  describeScan(page, result, scanner, sequencePrefix(scanner) == "rows" ? "row" : "column");
  std::vector<cv::Vec3i> triangles;
  if (isMesh(options.out)) {
    graphic::GraphicObject object = result.cloud.getGraphicObject(true);
    cv::Mat const present = result.cloud.state() == 0;
    addSurface(object, result.xyz, present);
    triangles = std::move(object.triangles());
  }
  page.add(pageCloud(result, std::move(triangles)));
}

std::string countTitle(std::string const& folder, std::size_t points) {
  return fs::weakly_canonical(folder).filename().string() + ": " + std::to_string(points) + " points";
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

/// Fills the page with a laser scan, whose figures are those of the report.
void fillPage(ScanOptions const& options, mv::LaserScanResult const& scan, Report& report) {
  Page& page = report.page();
  page.title = "Laser scan";
  page.subtitle = fs::weakly_canonical(options.folder).filename().string();
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

/// What a scan reads, as far as it is there.
std::vector<std::string> inputsOf(ScanOptions const& options, std::string const& prefix) {
  std::vector<std::string> inputs{options.calibration, options.motion.encoder};
  if (!options.names.empty()) {
    std::vector<std::string> const files = namedFiles(options.folder, options.names);
    inputs.insert(inputs.end(), files.begin(), files.end());
    return inputs;
  }
  for (NumberedFile const& file : findSequence(options.folder, prefix)) {
    inputs.push_back(file.path);
  }
  std::string const stage = stagePath(options.folder);
  if (options.isLaser && options.motion.step.empty() && std::filesystem::exists(stage)) {
    inputs.push_back(stage);
  }
  return inputs;
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

void runLaser(ScanOptions const& options, Report& report) {
  checkInputFile(options.calibration);
  mv::LineScanner scanner;
  load(options.calibration, scanner);
  report.declare(inputsOf(options, "line"), {options.out, options.preview});
  report.addProperties(scanner);
  checkFigurePath(options.preview);
  if (!options.out.empty()) {
    checkGraphicPath(options.out);
    if (isMesh(options.out)) {
      throw Exception("A laser scan is a cloud without triangles: write it as .ply or .obj", nullptr, 0,
                      "scan");
    }
  }
  mv::LaserScanSettings settings;
  settings.line.minContrast = options.contrast;
  settings.color = parseLaserColor(options.laserColor);
  settings.whiteLevel = options.whiteLevel;
  mv::LaserScanResult const scan = watched(
      [&](Observer* bar) { return scanLaser(options.folder, scanner, options.motion, settings, bar); });
  if (!options.out.empty()) {
    writeGraphic(options.out, scan.cloud.getGraphicObject(false));
  }
  if (!options.preview.empty()) {
    writeFigure(options.preview,
                drawCloud(std::vector<cv::Vec3f>(scan.cloud.points()), {},
                          countTitle(options.folder, scan.points), options.look),
                options.look.drawSettings());
  }
  report.add(scanReport(scan));
  if (report.isPageWanted()) {
    fillPage(options, scan, report);
  }
  std::cout << scan.points << " points from " << scan.images << " images";
  if (scan.ambiguousImages > 0) {
    report.warn(std::to_string(scan.ambiguousImages) + " of " + std::to_string(scan.images) +
                " images have two stripes side by side of which neither is the brighter one all along, and "
                "were left out");
  }
  if (scan.emptyImages > 0) {
    std::cout << ", " << scan.emptyImages << " of them without a laser line";
  }
  std::cout << '\n';
}

/// Images of the scanner's own sequence, or of the set that a description in the folder tells of.
struct Captured {
  std::vector<cv::Mat> images;
  std::optional<PatternFolder> described;
};

void declareInputs(ScanOptions const& options, Captured const& captured, std::string const& prefix,
                   Report& report) {
  std::vector<std::string> inputs;
  if (captured.described) {
    inputs = {options.calibration, captured.described->description};
    inputs.insert(inputs.end(), captured.described->paths.begin(), captured.described->paths.end());
    if (!options.assignments.empty()) {
      report.warn("images of a pattern set are decoded without the scanner's properties; of those given "
                  "with --set the ones of decoding have no effect");
    }
  } else {
    inputs = inputsOf(options, prefix);
  }
  report.declare(inputs, {options.out, options.xyz, options.map, options.preview});
}

void readCaptured(ScanOptions const& options, std::string const& prefix, Captured& captured) {
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
    return watched([&](Observer* bar) { return mv::scan(scanner, captured.images, settings, bar); });
  }
  mv::PatternScanSettings described;
  described.decode.correctsStaircase = settings.correctsStaircase;
  described.decode.whiteLevel = settings.whiteLevel;
  described.scan = settings;
  mv::PatternScanner patterns(captured.described->set, scanner, described);
  mv::PatternScanResult const result =
      watched([&](Observer* bar) { return patterns.scan(captured.images, bar); });
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

void runPattern(ScanOptions const& options, Report& report) {
  checkInputFile(options.calibration);
  mv::Sl3dScanner scanner;
  load(options.calibration, scanner);
  applyAssignments(scanner, options.assignments);
  Captured captured;
  if (options.names.empty() && fs::exists(patternSetPath(options.folder))) {
    captured.described = readPatternFolder(options.folder, "");
  }
  declareInputs(options, captured, sequencePrefix(scanner), report);
  report.addProperties(scanner);
  checkFigurePath(options.preview);
  checkFigurePath(options.map);
  if (!options.xyz.empty() && !isTiff(options.xyz)) {
    throw Exception("Points are stored as .tiff, not to " + options.xyz, nullptr, 0, "scan");
  }
  if (!options.out.empty()) {
    checkGraphicPath(options.out);
  }
  checkFields(options, scanner);

  Timer timer;
  readCaptured(options, sequencePrefix(scanner), captured);
  if (isLikeMosaic(captured.images.front())) {
    report.warn("the images look like the raw pixels of a colour sensor (a Bayer mosaic), which are taken as "
                "grey: make "
                "grey or colour pictures of them first");
  }
  double const readTime = timer.toc();
  mv::ScanSettings settings;
  bool const isTextured = std::as_const(scanner).getProperty("EnableTexture").getValue().toBool();
  settings.makeTexture = isTextured || report.isPageWanted();
  bool const hasFields = !options.fields.empty();
  settings.makeModulation = report.isPageWanted() || hasFields;
  settings.makeSigma = report.isPageWanted() || hasFields;
  settings.correctsStaircase = !options.keepsStaircase;
  settings.smoothRadius = options.smoothRadius;
  settings.whiteLevel = options.whiteLevel;
  mv::ScanResult result = scanOf(scanner, captured, settings, report);

  if (result.counts.points == 0) {
    if (report.isPageWanted()) {
      report.add(scanReport(result));
      fillPage(options, result, scanner, report.page());
      report.writePage();
    }
    throw Exception("None of the " + std::to_string(result.counts.pixels) + " pixels of " + options.folder +
                        " has a point: " + reasonText(result.counts),
                    nullptr, 0, "scan");
  }

  if (report.isPageWanted()) {
    fillPage(options, result, scanner, report.page());
    if (!isTextured) { // the page alone has colours then
      result.cloud.texture().release();
    }
  }
  if (hasFields) {
    watched([&](Observer* bar) { mv::addScanFields(result, scanner, options.fields, bar); });
  }
  timer.tic();
  if (!options.out.empty()) {
    writeCloud(options.out, result);
  }
  if (!options.xyz.empty()) {
    writeImage(options.xyz, result.xyz);
  }
  if (!options.map.empty()) {
    writeMap(options, result, sequencePrefix(scanner) == "rows" ? "row" : "column");
  }
  if (!options.preview.empty()) {
    writeFigure(options.preview,
                drawRelief(result.xyz, result.cloud.texture(),
                           countTitle(options.folder, result.counts.points), options.look),
                options.look.drawSettings());
  }
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

} // namespace

void addScanCommand(CLI::App& app) {
  auto options = std::make_shared<ScanOptions>();
  CLI::App* command = app.add_subcommand("scan", "Turn a folder of captured images into a point cloud");
  command
      ->add_option("folder", options->folder,
                   "Folder with columns_00.png ... (rows_00.png ... for a vertical scanner), or with "
                   "line_00.png ..., or with pattern_set.json and the images that it names")
      ->required();
  command->add_option("--calib", options->calibration, "The calibrated scanner, a JSON file")->required();
  CLI::Option* names = command
                           ->add_option("--columns,--rows", options->names,
                                        "The images where they have other names: names or patterns (in "
                                        "quotes: 'img_*.png') in the folder, "
                                        "in the order of the sequence, or one TIFF file of several pages")
                           ->type_name("NAME");
  CLI::Option* laser = command->add_flag(
      "--laser", options->isLaser,
      "A laser line scan: line_00.png ..., an image a laser line at each position of a linear stage");
  command
      ->add_option("--step", options->motion.step,
                   "How the stage moves the scene from one position to the next, mm in the camera's "
                   "frame; default: \"step\" in the folder's stage.json")
      ->type_name("X,Y,Z")
      ->needs(laser);
  command
      ->add_option("--encoder", options->motion.encoder,
                   "The stage's places in mm along the step, a number a position: text, CSV or JSON")
      ->needs(laser);
  names->excludes(laser);
  addContrastOption(*command, options->contrast)->needs(laser);
  addLaserColorOption(*command, options->laserColor)->needs(laser);
  command->add_option("-o,--out", options->out,
                      "Write the points as .ply, .pcd, .xyz or .obj, or the surface as .stl");
  command->add_option("--preview", options->preview, "Write a shaded picture (or .svg) of the depths");
  command
      ->add_option("--map", options->map,
                   "Write the decoded coordinates: a picture, .svg, or CV_32F as .tiff")
      ->excludes(laser);
  options->look.addRange(*command, "depths in mm");
  options->look.addLight(*command);
  command
      ->add_option("--xyz", options->xyz,
                   "Write the points on the camera's grid, CV_32FC3 with NaN, as .tiff")
      ->excludes(laser);
  command
      ->add_flag("--keep-staircase", options->keepsStaircase,
                 "Leave in the coordinates what the squares of a sharp projector's pixels do to them")
      ->excludes(laser);
  command
      ->add_option(
          "--smooth", options->smoothRadius,
          "Smooth the coordinates along the surfaces, over so many camera pixels to each side; edges "
          "stay sharp and what is curved keeps its size")
      ->check(CLI::Range(1, 5))
      ->excludes(laser);
  command
      ->add_option("--fields", options->fields,
                   "Numbers to write with every point: modulation (grey levels), sigma (from noise, mm), "
                   "sigma_calibration (mm)")
      ->delimiter(',')
      ->check(CLI::IsMember(mv::scanFieldNames()))
      ->excludes(laser);
  addWhiteLevelOption(*command, options->whiteLevel);
  options->page.addTo(*command);
  addSetOption(*command, options->assignments, "scanner", mv::Sl3dScanner())->excludes(laser);
  setWork(
      *command,
      [options](Report& report) {
        options->look.check();
        report.wantPage(options->page);
        options->isLaser ? runLaser(*options, report) : runPattern(*options, report);
      },
      "--report", "counts, times in ms and the box");
}

} // namespace vorn::tools
