// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include <vorn/mv/calib/detect_target.hpp>

#include "calib/target/target_finder.hpp"

namespace vorn::mv {

/// A board by rows.
struct BoardCorners {
  cv::Size size;
  std::vector<cv::Point2f> places;
  std::vector<char> isSettled; ///< whether each was measured at a saddle

  cv::Point2d at(cv::Point const& index) const {
    return places[static_cast<std::size_t>(index.y * size.width + index.x)];
  }
  bool has(cv::Point const& index) const { return cv::Rect({}, size).contains(index); }
};

/// Moves corners to the saddles of the grey levels: `findChessboardCornersSB` leaves them some hundredths of
/// a pixel beside, all to one side.
/// @param doubt how far they may be off, px
void refine(cv::Mat const& smooth, double doubt, BoardCorners& corners);

/// What the grey levels at a board's corners tell.
struct Judgement {
  std::vector<double> contrasts; ///< above 0 for dark squares at the upper left and lower right
  bool isFirstDark = true;       ///< whether the first corner has dark squares there
  double median = 0;

  /// Dark squares where they belong at a corner, and how clearly.
  double at(std::size_t number, cv::Point const& index) const {
    bool const isLikeFirst = (index.x + index.y) % 2 == 0;
    return isLikeFirst == isFirstDark ? contrasts[number] : -contrasts[number];
  }
};

/// Judges every corner of a board by the squares around it.
Judgement judge(cv::Mat const& smooth, BoardCorners const& corners);

/// The board without the corners that are no crossings, and those.
struct JudgedBoard {
  std::vector<TargetDot> kept;
  std::vector<DroppedDot> dropped;
};

/// Drops corners of too little contrast, without saddle, or beside where their neighbours say.
JudgedBoard sieve(BoardCorners const& corners, Judgement const& judgement);

/// The reason that most of some were dropped for.
std::string usualReason(std::vector<DroppedDot> const& dropped);

/// Whether there are crossings a square beyond one side of a board.
bool goesOn(cv::Mat const& smooth, BoardCorners const& corners, Judgement const& judgement);

} // namespace vorn::mv
