// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include <vorn/mv/calib/laser_line.hpp>

#include "tools/report/figure_options.hpp"
#include "tools/report/page_options.hpp"
#include "tools/scan/laser_folder.hpp"

namespace vorn::tools {

/// What `scan` was told, of patterns or of a laser line.
struct ScanOptions {
  std::string folder;
  std::string calibration;
  std::string out;
  std::string preview;
  std::string map;
  std::string xyz;
  FigureOptions look;
  PageOptions page;
  bool isLaser = false;
  StageMotion motion;
  double contrast = mv::LaserLineOptions().minContrast;
  std::vector<std::string> lines; ///< names of laser images; none for line_00.png ...
  std::vector<std::string> names; ///< of the images; none for columns_00.png ...
  std::string laserColor = "auto";
  std::vector<std::string> fields;
  std::vector<std::string> assignments;
  bool keepsStaircase = false;
  int smoothRadius = 0;
  double whiteLevel = 0.0;
};

/// The name of the folder that a scan is of.
inline std::string folderName(std::string const& folder) {
  return std::filesystem::weakly_canonical(folder).filename().string();
}

/// Over a picture of a scan.
inline std::string scanTitle(std::string const& folder, std::size_t points) {
  return folderName(folder) + ": " + std::to_string(points) + " points";
}

} // namespace vorn::tools
