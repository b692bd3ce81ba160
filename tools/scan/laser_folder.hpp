// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <vorn/mv/scanner/scan_laser.hpp>

namespace vorn::tools {

/// What tells how a linear stage moved the scene.
struct StageMotion {
  /// "X,Y,Z": motion of the scene from one position to the next, camera frame, mm. Empty to take it from
  /// "step" in stage.json beside the images.
  std::string step;
  /// A file with the stage's place in mm along the step, a number a position or a number an image: text with
  /// lines or commas between (a heading is passed over), or a JSON list. Empty for even steps.
  std::string encoder;
};

/// The file beside a laser scan's images that says how the stage moves.
std::string stagePath(std::string const& folder);

/// The images of a laser scan in a folder: line_00.png ..., or those of other names.
/// @throws Exception when nothing matches a pattern
std::vector<std::string> laserFiles(std::string const& folder, std::vector<std::string> const& names);

/// The library's laser scan of line_00.png, line_01.png ... in a folder: at each position of the stage an
/// image a laser line, in the order of the scanner's planes.
/// @param names of the images where they have others: names and patterns, or one TIFF file of several pages
/// @throws Exception that names the file and what is wrong in it; when none of the images shows a line; what
///         `mv::scanLaser` throws
mv::LaserScanResult scanLaser(std::string const& folder, mv::LineScanner const& scanner,
                              StageMotion const& motion, mv::LaserScanSettings const& settings,
                              Observer* observer = nullptr, std::vector<std::string> const& names = {});

/// The figures of a laser scan: counts, times, box.
nlohmann::json scanReport(mv::LaserScanResult const& scan);

} // namespace vorn::tools
