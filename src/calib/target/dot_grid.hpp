// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>
#include <optional>
#include <vector>

#include "calib/target/dot_candidate.hpp"
#include "calib/target/target_finder.hpp"

namespace vorn::mv {

/// Which of a list of dots stands at which grid position.
class GridIndex {
public:
  /// Positions lie within this many steps of (0, 0) in either direction.
  static constexpr int reach = 96;

  GridIndex() : cells_(static_cast<std::size_t>(side) * side, none) {}

  static bool contains(cv::Point const& index) {
    return std::abs(index.x) <= reach && std::abs(index.y) <= reach;
  }
  /// The number of the dot there, or `none`.
  int at(cv::Point const& index) const { return contains(index) ? cells_[cell(index)] : none; }
  void set(cv::Point const& index, int dot) { cells_[cell(index)] = dot; }

  static constexpr int none = -1;

private:
  static constexpr int side = 2 * reach + 1;
  static std::size_t cell(cv::Point const& index) {
    return static_cast<std::size_t>(index.y + reach) * side + static_cast<std::size_t>(index.x + reach);
  }

  std::vector<int> cells_;
};

/// A dot with four neighbours around it as on a square grid seen in perspective.
struct GridCross {
  /// Steps in the image from one dot to the next along the grid's two directions; which is which, and their
  /// signs, are not known yet.
  cv::Point2d first;
  cv::Point2d second;
  std::array<int, 4> neighbours; ///< the candidates around
};

/// The cross of neighbours around each candidate, where there is one. `areaMultiplier` bounds the ratio of a
/// neighbour's area to the dot's, either way.
/// @throws Cancelled when the observer stops it
std::vector<std::optional<GridCross>> findCrosses(std::vector<DotCandidate> const& candidates,
                                                  double areaMultiplier, Progress const& progress);

/// A candidate that has its place on the grid.
struct GridDot {
  int candidate = 0;
  cv::Point index;
};

/// A grid with its origin settled.
struct DotGrid {
  std::vector<GridDot> dots;
  bool isOriginMarked = false;
  /// The markers were told by the sizes of their blobs, so blur is small where the grid was found.
  bool areMarkersClear = false;
  /// Radius of the ordinary dots, pitches; roughly.
  double dotRadius = 0;
};

/// Joins candidates into the largest grid in sight, a marked one before all others, and settles its origin
/// and directions. Empty when there is none, or none whose indices agree with a homography around the origin.
///
/// @param image in which the candidates were found, H x W CV_8UC1
/// @throws Cancelled when the observer stops it
DotGrid assignGrid(cv::Mat const& image, std::vector<DotCandidate> const& candidates,
                   std::vector<std::optional<GridCross>> const& crosses, TargetSettings const& settings,
                   Progress const& progress);

} // namespace vorn::mv
