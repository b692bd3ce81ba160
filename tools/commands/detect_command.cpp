// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/calib_pattern_detector.hpp>
#include <vorn/mv/calib/detect_target.hpp>
#include <vorn/mv/imaging/white_level.hpp>
#include <vorn/mv/measure/amat.hpp>

#include "tools/calibration/target_overlay.hpp"
#include "tools/commands/commands.hpp"
#include "tools/commands/property_options.hpp"
#include "tools/commands/target_options.hpp"
#include "tools/files/file_list.hpp"
#include "tools/files/image_files.hpp"
#include "tools/progress.hpp"
#include "tools/report/figure_files.hpp"
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;
using mv::CalibPatternDetector;

namespace {

struct DetectOptions {
  std::vector<std::string> images;
  std::string overlays;
  std::string explanations;
  TargetOptions target;
  PitchOption pitch;
  std::vector<std::string> assignments;
};

nlohmann::json toJson(CalibPatternDetector::Result const& result, double pitch) {
  nlohmann::json points = nlohmann::json::array();
  for (mv::CalibKeyPoint const& point : result.getKeyPoints()) {
    points.push_back({{"index", {cvRound(point.objPnt.x / pitch), cvRound(point.objPnt.y / pitch)}},
                      {"objPnt", {point.objPnt.x, point.objPnt.y}},
                      {"imgPnt", {point.imgPnt.x, point.imgPnt.y}}});
  }
  return {{"originMarked", result.isOriginMarked()}, {"count", result.count()}, {"points", points}};
}

/// The image with what was found; deep ones from their darkest to their brightest.
mv::AMat overlayOf(cv::Mat const& image, std::vector<SeenDot> const& dots, bool isOriginMarked,
                   std::string const& title) {
  mv::AMat picture(image);
  picture.setTitle(title);
  addTarget(picture, dots, isOriginMarked);
  return picture;
}

std::vector<SeenDot> dotsOf(CalibPatternDetector::Result const& result, double pitch) {
  std::vector<SeenDot> dots;
  for (mv::CalibKeyPoint const& point : result.getKeyPoints()) {
    dots.push_back({point.imgPnt, {cvRound(point.objPnt.x / pitch), cvRound(point.objPnt.y / pitch)}});
  }
  return dots;
}

std::vector<SeenDot> dotsOf(mv::Detection const& detection) {
  std::vector<SeenDot> dots;
  for (std::size_t i = 0; i < detection.keyPoints.size(); ++i) {
    double const radius = i < detection.radii.size() ? static_cast<double>(detection.radii[i]) : 0.0;
    dots.push_back({detection.keyPoints[i].imgPnt, detection.indices[i], radius});
  }
  return dots;
}

std::string picturePath(std::string const& folder, std::string const& name) {
  return (fs::path(folder) / (name + ".png")).string();
}

void writePicture(std::string const& folder, std::string const& name, mv::AMat const& picture) {
  writeFigure(picturePath(folder, name), picture);
}

nlohmann::json toJson(mv::Detection const& detection) {
  nlohmann::json points = nlohmann::json::array();
  for (std::size_t i = 0; i < detection.keyPoints.size(); ++i) {
    mv::CalibKeyPoint const& point = detection.keyPoints[i];
    points.push_back({{"index", {detection.indices[i].x, detection.indices[i].y}},
                      {"objPnt", {point.objPnt.x, point.objPnt.y}},
                      {"imgPnt", {point.imgPnt.x, point.imgPnt.y}}});
    if (i < detection.radii.size()) {
      points.back()["radius"] = detection.radii[i];
    }
  }
  nlohmann::json steps = nlohmann::json::array();
  for (mv::DetectionStep const& step : detection.steps) {
    steps.push_back({{"name", step.name}, {"count", step.count}});
  }
  nlohmann::json dropped = nlohmann::json::array();
  for (mv::DroppedDot const& dot : detection.dropped) {
    dropped.push_back({{"imgPnt", {dot.imgPnt.x, dot.imgPnt.y}}, {"reason", dot.reason}});
  }
  return {{"originMarked", detection.isOriginMarked},
          {"count", detection.keyPoints.size()},
          {"points", points},
          {"readings", detection.readings},
          {"reason", detection.reason},
          {"steps", steps},
          {"dropped", dropped}};
}

/// Prints how many candidates each step left and how many dots were dropped for which reason.
void printSteps(mv::Detection const& detection, bool isBoard) {
  for (mv::DetectionStep const& step : detection.steps) {
    std::cout << "  " << step.count << ' ' << step.name << '\n';
  }
  for (std::string const& line : droppedKey(detection.dropped, isBoard)) {
    std::cout << "  " << line << '\n';
  }
}

std::string summary(mv::Detection const& detection) {
  return (detection.isEmpty() ? "no target: " + detection.reason
                              : std::to_string(detection.keyPoints.size()) + " points") +
         (detection.readings > 1 ? ", looks the same turned" : "") +
         (!detection.isEmpty() && detection.readings == 0 ? ", counted from the middle" : "");
}

/// Searches one image by a description of the target.
/// @param name of its pictures
nlohmann::json detectDescribed(DetectOptions const& options, std::string const& path, std::string const& name,
                               mv::TargetDescription const& target) {
  cv::Mat const image = readImage(path);
  mv::Detection const detection = detectTarget(image, target);
  std::cout << path << ": " << summary(detection) << '\n';
  mv::AMat picture =
      overlayOf(image, dotsOf(detection), detection.isOriginMarked, name + ": " + summary(detection));
  if (!options.overlays.empty()) {
    writePicture(options.overlays, name, picture);
  }
  if (!options.explanations.empty()) {
    bool const isBoard = target.kind == mv::TargetKind::Chessboard || target.kind == mv::TargetKind::Charuco;
    printSteps(detection, isBoard);
    addDropped(picture, detection.dropped);
    std::string title = picture.title();
    for (std::string const& line : droppedKey(detection.dropped, isBoard)) {
      title += '\n' + line;
    }
    picture.setTitle(title);
    writePicture(options.explanations, name, picture);
  }
  nlohmann::json entry = toJson(detection);
  entry["file"] = path;
  entry["size"] = {image.cols, image.rows};
  return entry;
}

/// Writes what was found. @throws Exception when that is nothing
void finish(DetectOptions const& options, nlohmann::json const& images, int found, Report& report) {
  report["images"] = images;
  report.write();
  if (found == 0) {
    throw Exception("No target found in any of " + std::to_string(options.images.size()) + " images", nullptr,
                    0, "detect");
  }
}

void runDescribed(DetectOptions const& options, Report& report) {
  mv::TargetDescription const target = options.target.description(options.pitch.pitch);
  for (std::string const& folder : {options.overlays, options.explanations}) {
    if (!folder.empty()) {
      makeFolder(folder);
    }
  }
  nlohmann::json images = nlohmann::json::array();
  int found = 0;
  ProgressBar bar;
  std::vector<std::string> const names = pictureNames(options.images);
  for (std::size_t i = 0; i < options.images.size(); ++i) {
    tell(&bar, "detecting targets", i, options.images.size());
    images.push_back(detectDescribed(options, options.images[i], names[i], target));
    found += images.back()["count"] == 0 ? 0 : 1;
  }
  finish(options, images, found, report);
}

/// For what is to be told before any image is searched.
void checkPlaces(DetectOptions const& options, Report& report) {
  std::vector<std::string> inputs = options.images;
  inputs.push_back(options.target.file());
  std::vector<std::string> outputs;
  for (std::string const& folder : {options.overlays, options.explanations}) {
    for (std::string const& name :
         fs::is_directory(folder) ? pictureNames(options.images) : std::vector<std::string>()) {
      outputs.push_back(picturePath(folder, name));
    }
  }
  report.declare(inputs, outputs);
  auto const place = [](std::string const& folder) {
    return fs::weakly_canonical(fs::absolute(folder) / "");
  };
  if (!options.overlays.empty() && !options.explanations.empty() &&
      place(options.overlays) == place(options.explanations)) {
    throw Exception("--overlay and --explain would write the same pictures to " + options.overlays, nullptr,
                    0, "detect");
  }
}

void run(DetectOptions const& options, Report& report) {
  checkPlaces(options, report);
  if (options.target.isGiven() || !options.explanations.empty()) {
    runDescribed(options, report);
    return;
  }
  CalibPatternDetector detector;
  applyAssignments(detector, options.assignments);
  options.pitch.apply(detector, options.assignments);
  report.addProperties(detector);
  double const pitch = detector["PatternDim"].getValue().toDouble();
  if (!options.overlays.empty()) {
    makeFolder(options.overlays);
  }
  nlohmann::json images = nlohmann::json::array();
  int found = 0;
  std::size_t deep = 0;
  ProgressBar bar;
  std::vector<std::string> const names = pictureNames(options.images);
  for (std::size_t i = 0; i < options.images.size(); ++i) {
    tell(&bar, "detecting targets", i, options.images.size());
    cv::Mat grey = readDeepGrayImage(options.images[i]);
    if (grey.depth() != CV_8U) {
      constexpr double mostOf8Bits = 255.0;
      grey.convertTo(grey, CV_8U, mostOf8Bits / std::max(1.0, mv::findWhiteLevel({grey})));
      ++deep;
    }
    auto const result = detector.detect(grey);
    nlohmann::json entry = toJson(result, pitch);
    entry["file"] = options.images[i];
    entry["size"] = {grey.cols, grey.rows};
    images.push_back(entry);
    found += result.isEmpty() ? 0 : 1;
    std::string const text =
        (result.isEmpty() ? std::string("no target") : std::to_string(result.count()) + " dots") +
        (result.isEmpty() || result.isOriginMarked() ? "" : ", markers not seen");
    std::cout << options.images[i] << ": " << text << '\n';
    if (!options.overlays.empty()) {
      writePicture(options.overlays, names[i],
                   overlayOf(grey, dotsOf(result, pitch), result.isOriginMarked(), names[i] + ": " + text));
    }
  }
  if (deep > 0) {
    report.warn(std::to_string(deep) + " of " + std::to_string(options.images.size()) +
                " pictures have more than 8 bits and were measured with 8; a description of the target "
                "(--target, --size) measures with all");
  }
  finish(options, images, found, report);
}

} // namespace

void addDetectCommand(CLI::App& app) {
  auto options = std::make_shared<DetectOptions>();
  CLI::App* command = app.add_subcommand("detect", "Find the points of the calibration target in images");
  command
      ->add_option("images", options->images, "Photographs of the target; * and ? stand for parts of names")
      ->required();
  command->add_option("--overlay", options->overlays, "Folder for pictures of what was found");
  options->pitch.addTo(*command);
  CLI::Option* explain = command->add_option(
      "--explain", options->explanations,
      "Folder for pictures of what was found and what was dropped; prints what each step left");
  CLI::Option* set = addSetOption(*command, options->assignments, "detector", CalibPatternDetector());
  explain->excludes(set);
  options->target.addTo(*command, set);
  setWork(
      *command,
      [options](Report& report) {
        options->images = expandFiles(options->images);
        run(*options, report);
      },
      "-o,--out,--report", "the key points");
}

} // namespace vorn::tools
