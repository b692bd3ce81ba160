// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/types.hpp>
#include <optional>
#include <vector>

#include "calib/target/dot_centre.hpp"
#include "calib/target/dot_grid.hpp"
#include "calib/target/target_finder.hpp"
#include "calib/target/target_map.hpp"

namespace vorn::mv {

/// A dot of a grid with its measurement. Its one centre is at first that of its image's area, and once the
/// perspective is known the image of the dot's own centre.
struct MeasuredDot {
  cv::Point index;
  DotMeasurement measured;
  double radius = 0; ///< pitches
};

/// The measured dots of a target by their indices, and the map through their centres, which is fitted anew
/// when it is asked for after the dots have changed.
class MeasuredGrid {
public:
  MeasuredGrid() = default;
  /// @param dots of indices that `GridIndex` contains, each once
  explicit MeasuredGrid(std::vector<MeasuredDot> dots) { replace(std::move(dots)); }

  std::vector<MeasuredDot> const& dots() const { return dots_; }
  bool empty() const { return dots_.empty(); }

  /// The number of the dot at an index, or `GridIndex::none`.
  int numberAt(cv::Point const& index) const { return places_.at(index); }
  /// The dot at an index, or null.
  MeasuredDot const* at(cv::Point const& index) const {
    int const number = numberAt(index);
    return number == GridIndex::none ? nullptr : &dots_[static_cast<std::size_t>(number)];
  }

  /// Nothing where the dots do not determine one.
  std::optional<TargetMap> const& map();

  void replace(std::vector<MeasuredDot> dots);
  /// Adds dots at indices that have none.
  void add(std::vector<MeasuredDot> const& dots);
  /// Keeps the dots for which `isKept(number, dot)` holds; true when that is not all of them.
  template <class IsKept>
  bool keepOnly(IsKept const& isKept) {
    std::vector<MeasuredDot> kept;
    for (std::size_t i = 0; i < dots_.size(); ++i) {
      if (isKept(i, dots_[i])) {
        kept.push_back(dots_[i]);
      }
    }
    if (kept.size() == dots_.size()) {
      return false;
    }
    replace(std::move(kept));
    return true;
  }

  /// The dots without their measurements.
  std::vector<TargetDot> targetDots() const;

private:
  std::vector<MeasuredDot> dots_;
  GridIndex places_;
  std::optional<TargetMap> map_;
  bool isMapCurrent_ = false;
};

} // namespace vorn::mv
