// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <vorn/mv/calib/laser_line.hpp>

#include "tools/calibration/folder_calibration.hpp"
#include "tools/commands/property_options.hpp"
#include "tools/commands/target_options.hpp"
#include "tools/report/figure_options.hpp"
#include "tools/report/page_options.hpp"

namespace vorn::tools {

/// What `calibrate` was told.
struct CalibrateOptions {
  std::string folder;
  std::string output;
  std::string plot;
  std::string overlays;
  FigureOptions look;
  PageOptions page;
  std::string projector;
  bool isCamera = false;
  bool isStereo = false;
  bool isLaser = false;
  bool isRig = false;
  ViewNames names;
  std::string pairOutput;
  std::string secondOutput;
  bool isAdjusted = true;
  bool isRefused = true;
  bool hasPrism = false;
  std::string shape = "auto";
  std::string camera;
  std::string camera1;
  bool isHeld = false;
  double contrast = mv::LaserLineOptions().minContrast;
  std::string laserColor = "auto";
  double whiteLevel = 0.0;
  TargetOptions target;
  PitchOption pitch;
  std::vector<std::string> assignments;
};

} // namespace vorn::tools
