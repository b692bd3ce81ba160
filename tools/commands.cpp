// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/commands.hpp"

namespace vorn::tools {

void addCommands(CLI::App& app) {
  // In the order of a job, which is that of the help text.
  addPatternsCommand(app);
  addTargetCommand(app);
  addDetectCommand(app);
  addCalibrateCommand(app);
  addScanCommand(app);
  addFilterCommand(app);
  addImageCommand(app);
  addInfoCommand(app);
  addSimulateCommand(app);
  addDemoCommand(app);
}

} // namespace vorn::tools
