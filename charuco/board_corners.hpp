// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/calib/detect_target.hpp>
#include <vorn/mv/calib/target_description.hpp>

#include "board_markers.hpp"

namespace vorn::mv {

/// A measured inner corner.
struct BoardCorner {
  cv::Point index;
  cv::Point2f centre; ///< pixels
};

/// Measures the inner corners beside the markers seen, by rows; those that are no crossing of four squares,
/// or stand off from where their neighbours put them, are dropped with the reason.
std::vector<BoardCorner> measureCorners(cv::Mat const& grey, SeenBoard const& board,
                                        TargetDescription const& target, std::vector<DetectionStep>& steps,
                                        std::vector<DroppedDot>& dropped);

} // namespace vorn::mv
