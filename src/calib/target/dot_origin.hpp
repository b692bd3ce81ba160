// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>
#include <optional>
#include <utility>
#include <vector>

#include "calib/target/dot_candidate.hpp"
#include "calib/target/dot_grid.hpp"
#include "calib/target/target_finder.hpp"

namespace vorn::mv {

/// A grid whose origin is not settled yet.
class RawGrid {
public:
  RawGrid(std::vector<DotCandidate> const& candidates, std::vector<GridDot> dots)
      : candidates_(candidates), dots_(std::move(dots)) {
    for (std::size_t i = 0; i < dots_.size(); ++i) {
      index_.set(dots_[i].index, static_cast<int>(i));
    }
  }

  std::vector<GridDot> const& dots() const { return dots_; }
  int at(cv::Point const& index) const { return index_.at(index); }
  cv::Point2d centre(int dot) const { return candidate(dot).centre; }
  DotCandidate const& candidate(int dot) const {
    return candidates_[static_cast<std::size_t>(dots_[static_cast<std::size_t>(dot)].candidate)];
  }

  /// The step in the image along a unit step of the grid, from the neighbours on both sides or one.
  std::optional<cv::Point2d> stepAt(int dot, cv::Point const& step) const {
    cv::Point const index = dots_[static_cast<std::size_t>(dot)].index;
    int const after = at(index + step);
    int const before = at(index - step);
    if (after != GridIndex::none && before != GridIndex::none) {
      return 0.5 * (centre(after) - centre(before));
    }
    if (after != GridIndex::none) {
      return centre(after) - centre(dot);
    }
    if (before != GridIndex::none) {
      return centre(dot) - centre(before);
    }
    return std::nullopt;
  }

  /// Each dot's area as a share of the grid cell around it; 0 where there is no cell to compare with.
  std::vector<double> areaShares() const {
    std::vector<double> shares;
    for (int i = 0; i < static_cast<int>(dots_.size()); ++i) {
      auto const x = stepAt(i, {1, 0});
      auto const y = stepAt(i, {0, 1});
      shares.push_back(x && y ? candidate(i).area / std::abs(x->cross(*y)) : 0.0);
    }
    return shares;
  }

private:
  std::vector<DotCandidate> const& candidates_;
  std::vector<GridDot> dots_;
  GridIndex index_;
};

/// Settles origin and directions.
///
/// @param image in which the candidates were found, H x W CV_8UC1
/// @return the ways to read the grid, best first: by the markers, where one set of them is seen, and counted
///         from the grid's middle
std::vector<DotGrid> settleOrigin(cv::Mat const& image, RawGrid const& grid, TargetSettings const& settings);

} // namespace vorn::mv
