// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <iostream>
#include <memory>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/timer.hpp>

#include "tools/cloud_files.hpp"
#include "tools/commands.hpp"
#include "tools/image_files.hpp"
#include "tools/json_file.hpp"
#include "tools/output_path.hpp"
#include "tools/preview.hpp"
#include "tools/property_options.hpp"
#include "tools/scan_job.hpp"

namespace vorn::tools {

namespace {

struct ScanOptions {
  std::string folder;
  std::string calibration;
  std::string out;
  std::string preview;
  std::string map;
  std::string xyz;
  std::string report;
  std::vector<std::string> assignments;
};

void writeCloud(std::string const& path, ScanResult& result) {
  graphic::GraphicObject object = result.cloud.getGraphicObject(true);
  if (lowerCaseEnding(path) == ".stl") {
    // A mesh format: neighbours on the camera's grid make the triangles. An edge several times the usual
    // distance between neighbours crosses a step.
    constexpr float stepRatio = 5.0F;
    cv::Mat const present = result.cloud.state() == 0;
    addGridTriangles(object, result.xyz, present, stepRatio * medianSpacing(result.xyz));
  }
  writeGraphic(path, object);
}

void writeMap(std::string const& path, cv::Mat_<float> const& map) {
  // The periods of the two coded axes differ; either shows as bands.
  constexpr float period = 8.0F;
  std::string const ending = lowerCaseEnding(path);
  bool const isRaw = ending == ".tif" || ending == ".tiff";
  writeImage(path, isRaw ? cv::Mat(map) : drawDecodedMap(map, period));
}

void run(ScanOptions const& options) {
  mv::Sl3dScanner scanner;
  readObject(options.calibration, scanner);
  applyAssignments(scanner, options.assignments);
  checkOutputs({options.out, options.xyz, options.map, options.preview, options.report});
  if (!options.out.empty()) {
    checkGraphicPath(options.out);
  }

  Timer timer;
  std::vector<cv::Mat> const images = readSequence(options.folder, sequencePrefix(scanner));
  double const readTime = timer.toc();
  ScanResult result = runScan(scanner, images);

  timer.tic();
  if (!options.out.empty()) {
    writeCloud(options.out, result);
  }
  if (!options.xyz.empty()) {
    writeImage(options.xyz, result.xyz);
  }
  if (!options.map.empty()) {
    writeMap(options.map, result.map);
  }
  if (!options.preview.empty()) {
    writeImage(options.preview, drawRelief(result.xyz, result.cloud.texture()));
  }
  double const writeTime = timer.toc();
  if (!options.report.empty()) {
    nlohmann::json report = scanReport(result);
    report["Images"] = images.size();
    report["Times"]["Read"] = readTime;
    report["Times"]["Write"] = writeTime;
    writeJsonFile(options.report, report);
  }
  std::cout << result.pointCount << " points from " << images.size() << " images of " << result.map.cols
            << " x " << result.map.rows << '\n';
}

} // namespace

void addScanCommand(CLI::App& app) {
  auto options = std::make_shared<ScanOptions>();
  CLI::App* command = app.add_subcommand("scan", "Turn a folder of captured images into a point cloud");
  command
      ->add_option("folder", options->folder,
                   "Folder with columns_00.png ... (rows_00.png ... for a vertical scanner)")
      ->required();
  command->add_option("--calib", options->calibration, "The calibrated scanner, a JSON file")->required();
  command->add_option("--out", options->out, "Write the points as .ply or .obj, or the surface as .stl");
  command->add_option("--preview", options->preview, "Write a shaded picture of the depths");
  command->add_option("--map", options->map, "Write the decoded coordinates: a picture, or CV_32F as .tiff");
  command->add_option("--xyz", options->xyz,
                      "Write the points on the camera's grid, CV_32FC3 with NaN, as .tiff");
  command->add_option("--report", options->report, "Write counts, times in ms and the box as JSON");
  addSetOption(*command, options->assignments, "scanner");
  command->callback([options] { run(*options); });
}

} // namespace vorn::tools
