// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/types.hpp>

#include <vorn/mv/calib/target_description.hpp>

namespace vorn::mv {

/// What a board's upper left square is. OpenCV counts rows from above since 4.6 and from below before, so
/// that boards with an even number of rows changed.
enum class UpperLeft { Dark, Marked };

/// A square of a board; (0, 0) is the upper left one.
inline bool isMarked(cv::Point const& square, UpperLeft upperLeft) {
  return ((square.x + square.y) % 2 == 0) == (upperLeft == UpperLeft::Marked);
}

/// Squares each way.
inline cv::Size squaresOf(TargetDescription const& target) {
  return {target.size.width + 1, target.size.height + 1};
}

/// The squares with markers, in the markers' order.
inline std::vector<cv::Point> markedSquares(TargetDescription const& target, UpperLeft upperLeft) {
  cv::Size const squares = squaresOf(target);
  std::vector<cv::Point> marked;
  for (int y = 0; y < squares.height; ++y) {
    for (int x = 0; x < squares.width; ++x) {
      if (isMarked({x, y}, upperLeft)) {
        marked.emplace_back(x, y);
      }
    }
  }
  return marked;
}

inline int markerCount(TargetDescription const& target, UpperLeft upperLeft) {
  return static_cast<int>(markedSquares(target, upperLeft).size());
}

} // namespace vorn::mv
