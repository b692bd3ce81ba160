// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/calib_pattern_detector.hpp>

#include "tools/commands/commands.hpp"
#include "tools/commands/property_options.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"
#include "tools/progress.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;
using mv::CalibPatternDetector;

namespace {

struct DetectOptions {
  std::vector<std::string> images;
  std::string output;
  std::string overlays;
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

/// Where the picture of an image's key points goes: images of one name in different folders must not meet.
std::string overlayPath(std::string const& folder, std::string const& image, std::size_t number,
                        bool isOnly) {
  std::string const stem = fs::path(image).stem().string();
  return (fs::path(folder) / (isOnly ? stem + ".png" : std::to_string(number) + "_" + stem + ".png"))
      .string();
}

void writeOverlay(std::string const& path, cv::Mat const& grey, CalibPatternDetector::Result const& result) {
  cv::Mat picture;
  cv::cvtColor(grey, picture, cv::COLOR_GRAY2BGR);
  cv::Scalar const green(80, 220, 80);
  cv::Scalar const red(60, 60, 255);
  result.draw(picture, std::max(4, grey.rows / 120), green, red);
  writeImage(path, picture);
}

void run(DetectOptions const& options) {
  CalibPatternDetector detector;
  applyAssignments(detector, options.assignments);
  options.pitch.apply(detector, options.assignments);
  double const pitch = detector["PatternDim"].getValue().toDouble();
  if (!options.overlays.empty()) {
    makeFolder(options.overlays);
  }
  nlohmann::json images = nlohmann::json::array();
  int found = 0;
  ProgressBar bar;
  for (std::size_t i = 0; i < options.images.size(); ++i) {
    tell(&bar, "detecting targets", i, options.images.size());
    cv::Mat const grey = readGrayImage(options.images[i]);
    auto const result = detector.detect(grey);
    nlohmann::json entry = toJson(result, pitch);
    entry["file"] = options.images[i];
    entry["size"] = {grey.cols, grey.rows};
    images.push_back(entry);
    found += result.isEmpty() ? 0 : 1;
    std::cout << options.images[i] << ": "
              << (result.isEmpty() ? "no target" : std::to_string(result.count()) + " dots")
              << (result.isEmpty() || result.isOriginMarked() ? "" : ", markers not seen") << '\n';
    if (!options.overlays.empty()) {
      writeOverlay(overlayPath(options.overlays, options.images[i], i, options.images.size() == 1), grey,
                   result);
    }
  }
  if (!options.output.empty()) {
    writeJsonFile(options.output, {{"images", images}});
  }
  if (found == 0) {
    throw Exception("No target found in any of " + std::to_string(options.images.size()) + " images", nullptr,
                    0, "detect");
  }
}

} // namespace

void addDetectCommand(CLI::App& app) {
  auto options = std::make_shared<DetectOptions>();
  CLI::App* command = app.add_subcommand("detect", "Find the dots of the calibration target in images");
  command->add_option("images", options->images, "Photographs of the target")->required();
  command->add_option("--out", options->output, "JSON file for the key points");
  command->add_option("--overlay", options->overlays, "Folder for pictures of what was found");
  options->pitch.addTo(*command);
  addSetOption(*command, options->assignments, "detector");
  command->callback([options] { run(*options); });
}

} // namespace vorn::tools
