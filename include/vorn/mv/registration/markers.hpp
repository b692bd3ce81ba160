// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <opencv2/core/matx.hpp>
#include <utility>
#include <vector>

#include <vorn/core/export.hpp>

namespace vorn::mv {

/// How `matchMarkers` works.
struct MarkerSettings {
  /// How far the places of one marker in two views may differ, in their unit. 0: 0.2 % of the extent of the
  /// source's markers.
  double tolerance = 0.0;
  /// Comparisons of markers after which the search ends, above 0; 1e9 take about half a minute. Hundreds of
  /// markers of which few are shared agree by chance nearly everywhere. What was found by then counts if at
  /// least twelve markers agree, and is refused with fewer.
  double maxComparisons = 1e9;
};

/// Markers that two views share, and the motion that lays them onto each other.
struct MarkerMatch {
  cv::Matx44d targetFromSource = cv::Matx44d::eye(); ///< moves the source's markers to the target's
  /// Indices of the same marker in the source and in the target, by rising index in the source.
  std::vector<std::pair<std::size_t, std::size_t>> pairs;
  double rms = 0.0; ///< RMS distance of the pairs after the motion
};

/// Finds where a view lies in the frame of another from markers seen in both: middles of target dots, or of
/// balls as from `fitSphere`. Which marker is which need not be known: three markers are told by their
/// distances, the rest by the motion that these give. The motion that the most markers agree with is taken,
/// and fitted to all of them.
/// @param source at least three markers, not all on a line
/// @param target in another frame; either list may have markers that the other has not
/// @throws Exception when fewer than three markers of a list are finite, when no three have the same
///         distances in both, when those that do lie on a line, when two motions fit equally many (the layout
///         is symmetric, or too little of it is shared), and when of hundreds of markers so few are shared
///         that they are not found among those that agree by chance
VORN_API MarkerMatch matchMarkers(std::vector<cv::Vec3d> const& source, std::vector<cv::Vec3d> const& target,
                                  MarkerSettings const& settings = {});

} // namespace vorn::mv
