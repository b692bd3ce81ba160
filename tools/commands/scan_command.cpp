// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <memory>

#include <vorn/mv/scanner/scan_fields.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "tools/commands/commands.hpp"
#include "tools/commands/laser_options.hpp"
#include "tools/commands/laser_scan.hpp"
#include "tools/commands/number_check.hpp"
#include "tools/commands/pattern_scan.hpp"
#include "tools/commands/property_options.hpp"
#include "tools/commands/white_level_option.hpp"
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace {

/// Says that the points are reckoned and thrown away.
void warnOfNoOutput(CLI::App const& command, Report& report) {
  for (char const* output : {"--out", "--preview", "--map", "--xyz", "--html", "--report", "--json"}) {
    if (command.get_option(output)->count() > 0) {
      return;
    }
  }
  report.warn("the points are not kept: --out names a file for them, --preview one for a picture");
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
                                        "quotes: 'img_*.png') in the folder, in the order of the sequence, "
                                        "or one TIFF file of several pages")
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
  command
      ->add_option("--lines", options->lines,
                   "The images of a laser scan where they have other names, likewise")
      ->type_name("NAME")
      ->needs(laser);
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
      ->transform(between(1, 5))
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
      [options, command](Report& report) {
        options->look.check();
        report.wantPage(options->page);
        options->isLaser ? runLaserScan(*options, report) : runPatternScan(*options, report);
        warnOfNoOutput(*command, report);
      },
      "--report", "counts, times in ms and the box");
}

} // namespace vorn::tools
