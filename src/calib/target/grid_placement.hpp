// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <vorn/mv/calib/target_description.hpp>

#include "calib/target/target_finder.hpp"

namespace vorn::mv {

/// Where on a target of known size the dots of a grid stand.
struct GridPlacement {
  /// With the target's indices; none when the grid is not the target's.
  std::vector<TargetDot> dots;
  /// In how many ways the grid fits the target; the one taken has x most along the image's columns.
  int readings = 0;
  bool isMarked = false;
  /// Why the grid is not the target's.
  std::string reason;
};

/// Puts a grid whose indices count from anywhere, in any of four turns, onto a target of known size: it must
/// reach the target's first and last row and column, and hold next to nothing beyond.
///
/// @param isLarger whether the dot at a place of the grid is larger than the others; asked at marks only
/// @param suits    whether what is seen at a place of the grid can be the target's point of an index, which
///                 so many quarter turns give it; asked once for each turn; null where all can be
GridPlacement
placeGrid(std::vector<TargetDot> const& dots, TargetDescription const& target,
          std::function<bool(cv::Point const& index)> const& isLarger,
          std::function<bool(cv::Point const& place, cv::Point const& index, int turns)> const& suits = {});

} // namespace vorn::mv
