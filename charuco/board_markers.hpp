// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/calib/detect_target.hpp>
#include <vorn/mv/calib/target_description.hpp>

#include "board_layout.hpp"

namespace vorn::mv {

/// A marker of a board in an image. Places on the board are in squares from the first inner corner, so that a
/// corner's place is its index.
struct SeenMarker {
  cv::Point2f centre;                 ///< on the board
  std::array<cv::Point2f, 4> onBoard; ///< its corners, clockwise from the upper left
  std::array<cv::Point2f, 4> inImage; ///< the same, pixels
};

/// The markers of a board in an image that stand where the board has them.
struct SeenBoard {
  UpperLeft upperLeft = UpperLeft::Dark;
  std::vector<SeenMarker> markers;
  std::vector<DetectionStep> steps;
  std::string reason; ///< why there is no board; empty when there is one
};

/// @param grey H x W CV_8UC1
/// @throws Exception as `dictionaryOf`
SeenBoard findMarkers(cv::Mat const& grey, TargetDescription const& target);

} // namespace vorn::mv
