// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <opencv2/core/matx.hpp>
#include <vector>

#include "registration/surface_features.hpp"

namespace vorn::mv {

/// Finds the shifts that lay the source onto the target once it is turned: every point of the source votes
/// for all those that bring it to a point of the target with its normal. Its vote is shared by these, so that
/// a large face, on which all may slide, does not outvote the small ones that hold it.
class ShiftVotes {
public:
  /// @param edge the distance of neighbours
  ShiftVotes(std::vector<OrientedPoint> const& source, std::vector<OrientedPoint> const& target, double edge);

  /// Where a turn and its best shifts take the source, those with most votes first.
  std::vector<cv::Matx44d> motions(cv::Matx33d const& targetFromSource, std::size_t most) const;

private:
  double cell_;
  int side_; ///< cells of the room of shifts, each way
  cv::Vec3d sourceMiddle_;
  cv::Vec3d targetMiddle_;
  std::vector<OrientedPoint> source_; ///< some of them, from their middle
  std::vector<cv::Vec3f> target_;     ///< some of them, in cells of the room
  /// For each of many directions the points of the target with about this normal.
  std::vector<std::vector<unsigned>> alike_;
};

} // namespace vorn::mv
