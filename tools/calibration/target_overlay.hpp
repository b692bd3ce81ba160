// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/types.hpp>

#include <vorn/mv/calib/detect_target.hpp>
#include <vorn/mv/measure/amat.hpp>

namespace vorn::tools {

/// A dot of the target in an image.
struct SeenDot {
  cv::Point2d at;    ///< px
  cv::Point index;   ///< column and row on the target
  double radius = 0; ///< of its image, px; 0 where it is not known
};

/// Marks the dots of a target by rings as large as they are (a third of the way to the next where that is not
/// known) and the lines of their grid, its axes from the origin on and the numbers of
/// columns and rows along its first row and column.
/// @param isOriginMarked whether the marks at the origin were seen: they get a second ring
void addTarget(mv::AMat& picture, std::vector<SeenDot> const& dots, bool isOriginMarked);

/// Marks the dots that were dropped with a letter for each reason, which `droppedKey` explains.
void addDropped(mv::AMat& picture, std::vector<mv::DroppedDot> const& dropped);

/// A line for each reason: its letter, how many dots it dropped, and the reason.
/// @param isBoard whether they are corners
std::vector<std::string> droppedKey(std::vector<mv::DroppedDot> const& dropped, bool isBoard);

/// How an image is called that may lie in a folder of its own: the folder's name, "_" and its own, without
/// their ending ("pose_03_target"); its own alone where it has no folder. A number goes before those that
/// would be the same.
std::vector<std::string> pictureNames(std::vector<std::string> const& images);

} // namespace vorn::tools
