// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tools/calibration/calibration_report.hpp"
#include "tools/calibration/folder_calibration.hpp"
#include "tools/commands/commands.hpp"
#include "tools/commands/laser_options.hpp"
#include "tools/commands/property_options.hpp"
#include "tools/commands/size_option.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"
#include "tools/files/output_path.hpp"
#include "tools/progress.hpp"

namespace vorn::tools {

namespace {

struct CalibrateOptions {
  std::string folder;
  std::string output;
  std::string report;
  std::string plot;
  std::string projector;
  bool isStereo = false;
  bool isLaser = false;
  double contrast = mv::LaserLineOptions().minContrast;
  PitchOption pitch;
  std::vector<std::string> assignments;
};

/// Shows the figures of a calibration and writes its files together, the object last: it stands there only
/// with the report and the plot that belong to it.
void finish(CalibrateOptions const& options, mv::Calibration const& calibration,
            IJsonSerializable const& object) {
  std::cout << table(calibration);
  std::vector<FileContent> files;
  if (!options.report.empty()) {
    files.push_back({options.report, jsonText(mv::toJson(calibration))});
  }
  if (!options.plot.empty()) {
    files.push_back({options.plot, encodedImage(options.plot, plotResiduals(calibration))});
  }
  nlohmann::json json;
  object.write(json);
  files.push_back({options.output, jsonText(json)});
  writeTogether(files);
}

void run(CalibrateOptions const& options) {
  options.pitch.require(options.assignments);
  checkOutputs({options.output, options.report, options.plot});
  checkPicturePath(options.plot);
  mv::CalibrationSettings settings;
  applyAssignments(settings.detector, options.assignments);
  options.pitch.apply(settings.detector, options.assignments);
  if (!options.projector.empty()) {
    settings.projector = parsePixels(options.projector, "--projector");
  }
  settings.line.minContrast = options.contrast;
  if (options.isLaser) {
    mv::LaserCalibration const calibration =
        watched([&](Observer* bar) { return calibrateLaser(options.folder, settings, bar); });
    finish(options, calibration, calibration.object);
  } else if (options.isStereo) {
    mv::StereoCalibration const calibration =
        watched([&](Observer* bar) { return calibrateStereo(options.folder, settings, bar); });
    finish(options, calibration, calibration.object);
  } else {
    mv::ScannerCalibration const calibration =
        watched([&](Observer* bar) { return calibrateScanner(options.folder, settings, bar); });
    finish(options, calibration, calibration.object);
  }
}

} // namespace

void addCalibrateCommand(CLI::App& app) {
  auto options = std::make_shared<CalibrateOptions>();
  CLI::App* command = app.add_subcommand(
      "calibrate", "Calibrate a scanner, two cameras or a laser line scanner from images of the target");
  command
      ->add_option("folder", options->folder,
                   "Folder with pose_00/target.png, columns_00.png, rows_00.png, ...")
      ->required();
  CLI::Option* laser =
      command->add_flag("--laser", options->isLaser,
                        "Calibrate a laser line scanner, from pose_00/target.png, line_00.png ..., an image "
                        "a laser line");
  addContrastOption(*command, options->contrast)->needs(laser);
  CLI::Option* stereo = command->add_flag(
      "--stereo", options->isStereo, "Calibrate two cameras, from pose_00/target.png and target_1.png, ...");
  command->add_option("--out", options->output, "The calibrated object, a JSON file")->required();
  laser->excludes(stereo);
  command
      ->add_option("--projector", options->projector,
                   "The projector's pixels, as 640x400; default: taken from the images")
      ->type_name("SIZE")
      ->excludes(laser)
      ->excludes(stereo);
  command->add_option("--report", options->report, "JSON file for the errors of every view");
  command->add_option("--plot", options->plot, "Picture of the reprojection errors");
  options->pitch.addTo(*command);
  addSetOption(*command, options->assignments, "detector, such as MinDotArea=20");
  command->callback([options] { run(*options); });
}

} // namespace vorn::tools
