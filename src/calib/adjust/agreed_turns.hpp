// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/types.hpp>

#include <vorn/mv/calib/adjustment.hpp>

namespace vorn::mv {

/// How the dots of a target that looks the same turned are counted in each view, so that one shape of the
/// target, bent or printed unevenly, fits them all.
struct AgreedTurns {
  /// By how many quarter turns about the middle each view's count has to be turned.
  std::vector<int> turns;
  /// Of each view, whether any other count fits clearly less.
  std::vector<bool> areTold;

  bool areAllTold() const;
};

/// The turns with which the squares of all views fall most once the target may be of a smooth shape, to first
/// order; turned all together they fit as well, so some view keeps its count.
/// @param readings of each view, in how many ways its dots can be counted: 1, 2 or 4
/// @param middle   about which the target is turned
/// @param flat     the adjustment of these views with a flat target
AgreedTurns agreedTurns(std::vector<AdjustmentView> const& views, std::vector<int> const& readings,
                        cv::Point2d const& middle, Adjustment const& flat);

/// Dots of the target turned by quarter turns about its middle, each exactly where one of `dots` is that is
/// next to it.
std::vector<cv::Point2f> turnedDots(std::vector<cv::Point2f> const& objPnts, cv::Point2d const& middle,
                                    int turns, std::vector<cv::Point2f> const& dots);

} // namespace vorn::mv
