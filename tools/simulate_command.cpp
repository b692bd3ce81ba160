// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <iostream>
#include <memory>

#include <sim/demo.hpp>
#include <sim/folder.hpp>

#include "tools/commands.hpp"
#include "tools/folder_progress.hpp"
#include "tools/image_files.hpp"

namespace vorn::tools {

namespace {

struct SimulateOptions {
  std::string folder;
  bool withCalibration = true;
  bool withRows = false;
  int divisor = 1;
};

void run(SimulateOptions const& options) {
  sim::Rig const rig = sim::demoRig(options.divisor);
  std::filesystem::path const folder = options.folder;
  makeFolder(options.folder);
  sim::writeScannerTruth((folder / "scanner_truth.json").string(), rig);

  sim::FolderOptions scan;
  scan.rows = options.withRows;
  scan.progress = followFolder("Rendering the scan");
  sim::writeScanFolder((folder / "scan").string(), rig, sim::demoScene(), scan);

  if (options.withCalibration) {
    sim::FolderOptions calibration;
    calibration.rows = true;
    calibration.progress = followFolder("Rendering the target views");
    sim::writeCalibrationFolder((folder / "calib").string(), rig, sim::demoTarget(), sim::demoTargetPoses(),
                                calibration);
  }
  std::cout << "In " << options.folder << ":\n"
            << "  scan/               captured images of one scan, with their truth\n"
            << (options.withCalibration
                    ? "  calib/              target views to calibrate from, pitch 15 mm\n"
                    : "")
            << "  scanner_truth.json  the true calibration\n";
}

} // namespace

void addSimulateCommand(CLI::App& app) {
  auto options = std::make_shared<SimulateOptions>();
  CLI::App* command =
      app.add_subcommand("simulate", "Render what a rig would capture: a scan, target views, and the truth");
  command->add_option("folder", options->folder, "Folder to write to; made if need be")->required();
  command->add_flag("!--no-calib", options->withCalibration, "Leave out the target views");
  command->add_flag("--rows", options->withRows, "Also the row sequence of the scan");
  constexpr int coarsest = 8;
  command->add_option("--divisor", options->divisor, "Divide the numbers of pixels by this")
      ->check(CLI::Range(1, coarsest));
  command->callback([options] { run(*options); });
}

} // namespace vorn::tools
