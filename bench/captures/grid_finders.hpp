// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include "capture_sets.hpp"

namespace vorn::bench {

/// The points of a target in one picture; none when it was not found.
struct FoundPoints {
  std::vector<cv::Point2f> imgPnts; ///< pixels
  std::vector<cv::Point3f> objPnts; ///< mm on the target, z 0
};

/// A way to find targets.
struct GridFinder {
  std::string name;
  std::function<FoundPoints(cv::Mat const& grey, CaptureSet const& set)> find;
};

/// The library's `detectTarget`, and of OpenCV what finds the set's kind of target: `cv::findCirclesGrid` as
/// it is and with clustering, or `cv::findChessboardCornersSB`.
std::vector<GridFinder> gridFinders(mv::TargetKind kind);

} // namespace vorn::bench
