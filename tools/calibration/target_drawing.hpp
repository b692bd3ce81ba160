// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/calib/target_description.hpp>

namespace vorn::tools {

/// A calibration target to print, a grid of dots or a ChArUco board. Lengths in millimetres on the paper.
struct TargetDrawing {
  /// The board, in place of dots and all that is said of them.
  std::optional<mv::TargetDescription> board;
  double pitch = 15;
  /// First and last column and row, both included.
  cv::Point minIndex = {-10, -7};
  cv::Point maxIndex = {10, 7};
  /// Dark dots on white ground instead of white dots on grey.
  bool hasDarkDots = false;
  bool hasMarkers = true;
  /// Width and height; empty to make the page as large as the target needs.
  cv::Size2d page;
  /// Pixels per inch of the raster picture.
  double resolution = 600;
};

/// The page's size: the one asked for, or the least one.
/// @throws Exception when the target does not fit on the page asked for, or its figures make no target
cv::Size2d pageSize(TargetDrawing const& target);

/// The target as an SVG document whose units are millimetres.
std::string targetSvg(TargetDrawing const& target);

/// The target as a picture, CV_8UC1, dots drawn by the share of each pixel that they cover.
/// @throws Exception as `pageSize`, and for more than 500 million pixels
cv::Mat targetPicture(TargetDrawing const& target);

/// What the drawn target is, for programs that look for it.
mv::TargetDescription describe(TargetDrawing const& target);

/// The files that `writeTarget` writes for a path: the drawings, and the description last.
/// @throws Exception for an extension that is neither .svg nor .png
std::vector<std::string> targetFiles(std::string const& path);

/// Writes SVG or PNG by the path's extension, or both beside each other when it has none. The PNG holds its
/// resolution, so that programs print it to scale. Its description stands beside it as .json; all of them are
/// written, or none.
/// @throws Exception for another extension, when a file cannot be written, and when the .json would replace
///         what is no description or holds deviations of dots
void writeTarget(std::string const& path, TargetDrawing const& target);

} // namespace vorn::tools
