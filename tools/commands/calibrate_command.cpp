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
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace {

struct CalibrateOptions {
  std::string folder;
  std::string output;
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
            IJsonSerializable const& object, Report& report) {
  std::cout << table(calibration);
  report.add(mv::toJson(calibration));
  std::vector<FileContent> files = report.takeFiles();
  if (!options.plot.empty()) {
    files.push_back({options.plot, encodedImage(options.plot, plotResiduals(calibration))});
  }
  nlohmann::json json;
  object.write(json);
  files.push_back({options.output, jsonText(json)});
  writeTogether(files);
}

std::vector<std::string> prefixesOf(CalibrateOptions const& options) {
  if (options.isLaser) {
    return {"target", "line"};
  }
  return options.isStereo ? std::vector<std::string>{"target"}
                          : std::vector<std::string>{"target", "columns", "rows"};
}

void run(CalibrateOptions const& options, Report& report) {
  options.pitch.require(options.assignments);
  mv::CalibrationSettings settings;
  applyAssignments(settings.detector, options.assignments);
  options.pitch.apply(settings.detector, options.assignments);
  report.declare(calibrationPictures(options.folder, prefixesOf(options)), {options.output, options.plot});
  checkPicturePath(options.plot);
  if (!options.projector.empty()) {
    settings.projector = parsePixels(options.projector, "--projector");
  }
  report.addProperties(settings.detector);
  settings.line.minContrast = options.contrast;
  if (options.isLaser) {
    mv::LaserCalibration const calibration =
        watched([&](Observer* bar) { return calibrateLaser(options.folder, settings, bar); });
    finish(options, calibration, calibration.object, report);
  } else if (options.isStereo) {
    mv::StereoCalibration const calibration =
        watched([&](Observer* bar) { return calibrateStereo(options.folder, settings, bar); });
    finish(options, calibration, calibration.object, report);
  } else {
    mv::ScannerCalibration const calibration =
        watched([&](Observer* bar) { return calibrateScanner(options.folder, settings, bar); });
    finish(options, calibration, calibration.object, report);
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
  command->add_option("-o,--out", options->output, "The calibrated object, a JSON file")->required();
  laser->excludes(stereo);
  command
      ->add_option("--projector", options->projector,
                   "The projector's pixels, as 640x400; default: taken from the images")
      ->type_name("SIZE")
      ->excludes(laser)
      ->excludes(stereo);
  command->add_option("--plot", options->plot, "Picture of the reprojection errors");
  options->pitch.addTo(*command);
  addSetOption(*command, options->assignments, "detector, such as MinDotArea=20");
  setWork(
      *command, [options](Report& report) { run(*options, report); }, "--report", "the errors of every view");
}

} // namespace vorn::tools
