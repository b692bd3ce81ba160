// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>

#include <opencv2/core/mat.hpp>

#include <vorn/mv/calib/detect_target.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

namespace vorn::tools {

/// A dot of a target in a scan.
struct ScannedDot {
  cv::Point2f pixel; ///< its centre, of the camera
  cv::Point index;   ///< column and row on the target
  cv::Point3d place; ///< in the points' frame: where the ray of the centre meets the target's surface
};

/// The distance between two dots of a target.
struct DotLength {
  std::array<ScannedDot, 2> dots;
  double length = 0;        ///< mm
  double sigma = 0;         ///< one standard deviation, from how far all dots are off an even grid, mm
  std::size_t gridDots = 0; ///< of the target, that this comes from
};

/// The distance of the two dots that show at two pixels.
/// @param target  as found in an image of the same view
/// @param xyz     points on the camera's grid, in the frame of the scanner's pose; NaN where there is none
/// @throws Exception that names the pixel where there is no dot, or no surface about it; for two pixels on
///         one dot
DotLength measureDots(mv::Detection const& target, cv::Mat_<cv::Vec3f> const& xyz,
                      mv::Sl3dScanner const& scanner, cv::Point const& first, cv::Point const& second);

} // namespace vorn::tools
