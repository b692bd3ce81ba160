// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>
#include <vector>

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

/// Whether a board's corners stand where the ones around them say. Headers alone: the library of ChArUco
/// boards, which sees no more of this one than others do, judges by it too.
namespace vorn::mv {

/// How far a corner is from where its neighbours put it, px; none when they are too few to tell.
/// @tparam Corner has an `index` on the board and a `centre` in the image
template <class Corner>
std::optional<double> offsetFromNeighbours(std::vector<Corner> const& corners, Corner const& corner) {
  constexpr double near = 2.3; // squares
  constexpr std::size_t least = 6;
  constexpr double outlier = 1; // px
  std::vector<cv::Point2f> onBoard;
  std::vector<cv::Point2f> inImage;
  for (Corner const& other : corners) {
    if (other.index != corner.index && cv::norm(other.index - corner.index) < near) {
      onBoard.emplace_back(other.index);
      inImage.emplace_back(other.centre);
    }
  }
  if (onBoard.size() < least) {
    return std::nullopt;
  }
  cv::Mat const h = cv::findHomography(onBoard, inImage, cv::RANSAC, outlier);
  if (h.empty()) {
    return std::nullopt;
  }
  std::vector<cv::Point2f> mapped;
  cv::perspectiveTransform(std::vector<cv::Point2f>{cv::Point2f(corner.index)}, mapped, h);
  return cv::norm(mapped.front() - cv::Point2f(corner.centre));
}

/// How far it may be. Neighbours foretell a corner to a tenth of a pixel; a strong lens leaves a few
/// hundredths of a square.
/// @param square its side, px
inline double mostOffset(double square) {
  constexpr double leastOffset = 0.5; // px
  constexpr double share = 0.03;
  return std::max(leastOffset, share * square);
}

} // namespace vorn::mv
