// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>
#include <opencv2/core/matx.hpp>

#include <vorn/mv/calib/laser_line.hpp>
#include <vorn/mv/calib/line_scanner.hpp>

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

/// What a laser scan gave, and how long each stage took.
struct LaserScan {
  std::vector<cv::Vec3f> points; ///< mm, where they lay in the camera's frame in the first image
  std::size_t images = 0;
  std::size_t emptyImages = 0;  ///< images without a line
  double readTime = 0.0;        ///< ms
  double extractTime = 0.0;     ///< ms
  double triangulateTime = 0.0; ///< ms
};

/// Turns line_00.png, line_01.png ... in a folder into points: at each position of the stage an image a laser
/// line, in the order of the scanner's planes.
/// @param options the direction is taken from the laser planes
/// @throws Exception when the scanner is not calibrated, the images do not suit it or the stage, or none
/// shows a
///         line
LaserScan scanLaser(std::string const& folder, mv::LineScanner const& scanner, StageMotion const& motion,
                    mv::LaserLineOptions options);

/// The figures of a scan: counts, times, box.
nlohmann::json scanReport(LaserScan const& scan);

} // namespace vorn::tools
