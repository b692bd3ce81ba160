// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/commands.hpp"

#include <vorn/core/system.hpp>

namespace vorn::tools {

std::unique_ptr<CLI::App> makeProgram() {
  auto program = std::make_unique<CLI::App>(
      "Structured light and laser line 3D measurement: patterns, calibration, scans, point clouds.",
      "vorn-mv");
  CLI::App& app = *program;
  app.get_formatter()->label("TEXT", "PATH");
  app.require_subcommand(1);
  app.set_version_flag("--version", VORN_MV_VERSION);
  auto const verbose = std::make_shared<bool>(false);
  app.add_flag("--verbose", *verbose, "The library's own messages on standard error");
  app.parse_complete_callback([verbose] { System::set("EnableDebugMode", Variant(*verbose)); });
  // In the order of a job, which is that of the help text.
  addPatternsCommand(app);
  addTargetCommand(app);
  addDetectCommand(app);
  addCalibrateCommand(app);
  addDecodeCommand(app);
  addScanCommand(app);
  addCheckCommand(app);
  addFilterCommand(app);
  addNormalsCommand(app);
  addAlignCommand(app);
  addFuseCommand(app);
  addTextureCommand(app);
  addMeshCommand(app);
  addHeightCommand(app);
  addImageCommand(app);
  addFocusCommand(app);
  addExposureCommand(app);
  addHistogramCommand(app);
  addProfileCommand(app);
  addInfoCommand(app);
  addSimulateCommand(app);
  addDemoCommand(app);
  return program;
}

} // namespace vorn::tools
