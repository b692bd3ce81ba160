// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <opencv2/core/matx.hpp>
#include <vector>

#include "core/progress.hpp"

namespace vorn::mv {

/// Points sorted into the cells of a cubic grid that covers them, so that those near a place lie in nine
/// pieces of memory. Read-only once built: several threads may ask.
class PointCells {
public:
  /// Numbers of cells or of sorted points from `first` to before `end`.
  struct Range {
    std::uint32_t first;
    std::uint32_t end;
  };

  /// @param points finite, at most 2^32 - 1
  /// @param size edge length of a cell, above 0. Points far from all others take no more room than near ones:
  ///        of a grid of more than 2^63 cells only layers with points count and one beside each. The edge
  ///        grows where there are more than a million such layers along each axis.
  PointCells(std::vector<cv::Vec3f> const& points, float size, Progress const& progress = {});

  float size() const { return size_; }
  /// The numbers of the points by cells, within a cell in rising order.
  std::vector<std::uint32_t> const& order() const { return order_; }
  std::uint32_t cellCount() const { return static_cast<std::uint32_t>(keys_.size()); }
  /// The sorted points of a cell.
  Range pointsOf(std::uint32_t cell) const { return {starts_[cell], starts_[cell + 1]}; }
  /// The sorted points of cells that follow each other.
  Range pointsOf(Range const& cells) const { return {starts_[cells.first], starts_[cells.end]}; }
  /// The cells that touch a cell, with itself, as rows along x; a row may be empty.
  std::array<Range, 9> around(std::uint32_t cell) const;

private:
  float size_;
  std::array<std::uint64_t, 3> counts_{};
  std::vector<std::uint32_t> order_;
  std::vector<std::uint64_t> keys_; ///< of cells with points, rising
  std::vector<std::uint32_t> starts_;
};

} // namespace vorn::mv
