// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tools/calibration_session.hpp"
#include "tools/commands.hpp"
#include "tools/image_files.hpp"
#include "tools/json_file.hpp"
#include "tools/property_options.hpp"
#include "tools/size_option.hpp"

namespace vorn::tools {

namespace {

struct CalibrateOptions {
  std::string folder;
  std::string output;
  std::string report;
  std::string plot;
  std::string projector;
  std::vector<std::string> assignments;
};

void run(CalibrateOptions const& options) {
  CalibrationSettings settings;
  applyAssignments(settings.detector, options.assignments);
  if (!options.projector.empty()) {
    settings.projector = cv::Size(parseSize(options.projector, "--projector"));
  }
  Calibration const calibration = calibrateScanner(options.folder, settings);
  std::cout << table(calibration);
  if (!options.report.empty()) {
    writeJsonFile(options.report, report(calibration));
  }
  if (!options.plot.empty()) {
    writeImage(options.plot, plotResiduals(calibration));
  }
  writeObject(options.output, calibration.scanner);
}

} // namespace

void addCalibrateCommand(CLI::App& app) {
  auto options = std::make_shared<CalibrateOptions>();
  CLI::App* command = app.add_subcommand("calibrate", "Calibrate a scanner from images of the target");
  command
      ->add_option("folder", options->folder,
                   "Folder with pose_00/target.png, columns_00.png, rows_00.png, ...")
      ->required();
  command->add_option("--out", options->output, "The calibrated scanner, a JSON file")->required();
  command->add_option("--projector", options->projector,
                      "The projector's pixels, as 640x400; default: taken from the images");
  command->add_option("--report", options->report, "JSON file for the errors of every view");
  command->add_option("--plot", options->plot, "Picture of the reprojection errors");
  addSetOption(*command, options->assignments, "detector, such as PatternDim=15");
  command->callback([options] { run(*options); });
}

} // namespace vorn::tools
