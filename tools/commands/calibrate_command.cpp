// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "tools/commands/calibrate_options.hpp"
#include "tools/commands/calibration_run.hpp"
#include "tools/commands/commands.hpp"
#include "tools/commands/laser_options.hpp"
#include "tools/commands/property_options.hpp"
#include "tools/commands/white_level_option.hpp"
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace {

/// Options for views and pictures that have other names.
void addNames(CLI::App& command, ViewNames& names, CLI::Option* laser) {
  command.add_option("--poses", names.poses, "The views' folders where they have other names, as 'view*'")
      ->type_name("PATTERN")
      ->capture_default_str();
  command
      .add_option("--target-image", names.targets,
                  "The target's picture in a view where it has another name, of two cameras both; patterns "
                  "('*white*') may stand for it")
      ->type_name("NAME")
      ->expected(1, 2);
  auto const add = [&](char const* name, std::vector<std::string>& list, char const* help) {
    return command.add_option(name, list, help)->type_name("NAME");
  };
  add("--columns", names.columns,
      "The images of the column sequence in a view where they have other names: names or patterns (in "
      "quotes: "
      "'img_*.png'), or one TIFF file of several pages")
      ->excludes(laser);
  add("--rows", names.rows, "The images of the row sequence, likewise")->excludes(laser);
  add("--lines", names.lines, "The images of the laser lines, likewise")->needs(laser);
}

/// Options for two cameras and a projector.
CLI::Option* addRig(CLI::App& command, CalibrateOptions& options) {
  CLI::Option* rig = command.add_flag("--rig", options.isRig,
                                      "Calibrate two cameras and a projector in one frame, from the first "
                                      "camera's views in the folder and the "
                                      "second one's, of the same poses, in its folder second");
  CLI::Option* pair = command
                          .add_option("--out-pair", options.pairOutput,
                                      "The two cameras of a rig, a JSON file as of --stereo")
                          ->needs(rig);
  CLI::Option* second =
      command
          .add_option("--out-second", options.secondOutput,
                      "The second camera of a rig with the projector, a JSON file; its points are in the "
                      "first camera's frame")
          ->needs(rig);
  rig->needs(pair)->needs(second);
  return rig;
}

/// Options for cameras that were calibrated elsewhere.
void addCameras(CLI::App& command, CalibrateOptions& options, CLI::Option* separate, CLI::Option* laser,
                CLI::Option* single) {
  command
      .add_option(
          "--camera-model", options.camera,
          "A camera that was calibrated elsewhere, to begin with: a file of OpenCV's (YAML or XML) or "
          "a calibration of this tool")
      ->excludes(separate)
      ->excludes(laser);
  command.add_option("--camera-model-1", options.camera1, "The same of the second of two cameras")
      ->excludes(separate)
      ->excludes(laser)
      ->excludes(single);
  command.add_flag("--hold", options.isHeld, "Keep the cameras that are given as they are");
}

} // namespace

void addCalibrateCommand(CLI::App& app) {
  auto options = std::make_shared<CalibrateOptions>();
  CLI::App* command = app.add_subcommand(
      "calibrate",
      "Calibrate a scanner, one or two cameras or a laser line scanner from images of the target");
  command
      ->add_option("folder", options->folder,
                   "Folder with pose_00/target.png, columns_00.png, rows_00.png, ..., or with "
                   "pattern_set.json in it or "
                   "in pose_00 ... and the images that it names")
      ->required();
  CLI::Option* laser =
      command->add_flag("--laser", options->isLaser,
                        "Calibrate a laser line scanner, from pose_00/target.png, line_00.png ..., an image "
                        "a laser line");
  addWhiteLevelOption(*command, options->whiteLevel);
  addContrastOption(*command, options->contrast)->needs(laser);
  addLaserColorOption(*command, options->laserColor)->needs(laser);
  CLI::Option* stereo = command->add_flag(
      "--stereo", options->isStereo, "Calibrate two cameras, from pose_00/target.png and target_1.png, ...");
  CLI::Option* camera = command->add_flag(
      "--camera", options->isCamera,
      "Calibrate one camera, from pose_00/target.png ... or from every picture in the folder");
  command->add_option("-o,--out", options->output, "The calibrated object, a JSON file")->required();
  laser->excludes(stereo);
  camera->excludes(laser)->excludes(stereo);
  addNames(*command, options->names, laser);
  CLI::Option* rig = addRig(*command, *options);
  rig->excludes(laser)->excludes(stereo)->excludes(camera);
  command
      ->add_option("--projector", options->projector,
                   "The projector's pixels, as 640x400; default: taken from the images")
      ->type_name("SIZE")
      ->excludes(laser)
      ->excludes(stereo)
      ->excludes(camera);
  CLI::Option* separate =
      command->add_flag("!--separate", options->isAdjusted,
                        "Calibrate each device by itself, without adjusting all views together and without "
                        "looking for what is wrong with them");
  command
      ->add_flag("!--keep-moved", options->isRefused,
                 "Calibrate although a device was moved, or its focus changed, between two views")
      ->excludes(separate);
  command->add_flag("--prism", options->hasPrism, "Lenses with thin prism terms beside the five coefficients")
      ->excludes(separate);
  command
      ->add_option("--target-shape", options->shape,
                   "The target is flat (a plate known to be so), bent smoothly, or every dot lies by itself; "
                   "auto: the simplest of these that the views do not contradict")
      ->check(CLI::IsMember({"auto", "flat", "smooth", "dots"}))
      ->capture_default_str()
      ->excludes(separate);
  rig->excludes(separate);
  addCameras(*command, *options, separate, laser, camera);
  command->add_option("--plot", options->plot, "Picture (or .svg) of the reprojection errors");
  command->add_option("--overlay", options->overlays,
                      "Folder for pictures of the views with the dots, laser lines and errors");
  options->look.addLight(*command);
  options->page.addTo(*command);
  options->pitch.addTo(*command);
  options->target.addTo(*command,
                        addSetOption(*command, options->assignments, "detector, such as MinDotArea=20",
                                     mv::CalibrationSettings().detector));
  setWork(
      *command, [options](Report& report) { runCalibration(*options, report); }, "--report",
      "the errors of every view");
}

} // namespace vorn::tools
