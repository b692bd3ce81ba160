// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/calib/target_description.hpp>

namespace vorn::tools {

/// Width and height of a board's squares, mm.
cv::Size2d boardSize(mv::TargetDescription const& board);

/// What stands below a board.
std::string boardCaption(mv::TargetDescription const& board);

/// The board's dark parts as elements of an SVG document whose units are millimetres.
/// @param upperLeft of the first square on the page, mm
std::string boardSvg(mv::TargetDescription const& board, cv::Point2d const& upperLeft);

/// Draws the board's dark parts, each pixel by its share that they cover.
/// @param picture CV_8UC1, white where the board comes
/// @param grey    of what is dark
void drawBoard(cv::Mat& picture, mv::TargetDescription const& board, cv::Point2d const& upperLeft,
               double pixelsPerMm, int grey);

} // namespace vorn::tools
