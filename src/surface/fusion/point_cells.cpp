// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "surface/fusion/point_cells.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/radix_sort.hpp"

namespace vorn::mv {

PointCells::PointCells(std::vector<cv::Vec3f> const& points, float size, Progress const& progress)
    : size_(size) {
  cv::Vec3f low = cv::Vec3f::all(std::numeric_limits<float>::max());
  cv::Vec3f high = -low;
  for (cv::Vec3f const& point : points) {
    for (int i = 0; i < 3; ++i) {
      low[i] = std::min(low[i], point[i]);
      high[i] = std::max(high[i], point[i]);
    }
  }
  constexpr double mostCells = 4294967295.0;
  constexpr float growth = 1.26F; // twice the volume
  auto const cellsAlong = [&](int axis) {
    return std::floor((static_cast<double>(high[axis]) - static_cast<double>(low[axis])) /
                      static_cast<double>(size_)) +
           1.0;
  };
  while (!points.empty() && cellsAlong(0) * cellsAlong(1) * cellsAlong(2) > mostCells) {
    size_ *= growth;
  }
  for (int i = 0; i < 3 && !points.empty(); ++i) {
    counts_[static_cast<std::size_t>(i)] = static_cast<std::uint32_t>(cellsAlong(i));
  }
  std::vector<std::uint64_t> sorted(points.size());
  double const perCell = 1.0 / static_cast<double>(size_);
  for (std::size_t i = 0; i < points.size(); ++i) {
    std::array<std::uint64_t, 3> at{};
    for (int axis = 0; axis < 3; ++axis) {
      auto const k = static_cast<std::size_t>(axis);
      double const place = (static_cast<double>(points[i][axis]) - static_cast<double>(low[axis])) * perCell;
      at[k] = std::min(static_cast<std::uint64_t>(place), std::uint64_t{counts_[k]} - 1);
    }
    std::uint64_t const key = (at[2] * counts_[1] + at[1]) * counts_[0] + at[0];
    sorted[i] = key << 32U | i;
  }
  std::vector<std::uint64_t> spare;
  constexpr unsigned digitBits = 11;
  sortByUpperHalf<digitBits, KeyOrder::Rising>(sorted, spare, progress);
  order_.resize(sorted.size());
  for (std::size_t i = 0; i < sorted.size(); ++i) {
    order_[i] = static_cast<std::uint32_t>(sorted[i]);
    auto const key = static_cast<std::uint32_t>(sorted[i] >> 32U);
    if (keys_.empty() || keys_.back() != key) {
      keys_.push_back(key);
      starts_.push_back(static_cast<std::uint32_t>(i));
    }
  }
  starts_.push_back(static_cast<std::uint32_t>(sorted.size()));
}

std::array<PointCells::Range, 9> PointCells::around(std::uint32_t cell) const {
  std::uint32_t const key = keys_[cell];
  std::uint32_t const x = key % counts_[0];
  std::uint32_t const y = key / counts_[0] % counts_[1];
  std::uint32_t const z = key / counts_[0] / counts_[1];
  std::array<Range, 9> rows{};
  std::size_t next = 0;
  for (int down = -1; down <= 1; ++down) {
    for (int aside = -1; aside <= 1; ++aside) {
      Range& row = rows[next++];
      bool const isInside = !(aside < 0 && y == 0) && !(aside > 0 && y + 1 == counts_[1]) &&
                            !(down < 0 && z == 0) && !(down > 0 && z + 1 == counts_[2]);
      if (!isInside) {
        continue;
      }
      std::uint32_t const middle = key + static_cast<std::uint32_t>(down) * counts_[1] * counts_[0] +
                                   static_cast<std::uint32_t>(aside) * counts_[0];
      std::uint32_t const first = x > 0 ? middle - 1 : middle;
      std::uint32_t const last = x + 1 < counts_[0] ? middle + 1 : middle;
      auto const begin = std::lower_bound(keys_.begin(), keys_.end(), first);
      auto end = begin;
      while (end != keys_.end() && *end <= last) {
        ++end;
      }
      row = {static_cast<std::uint32_t>(begin - keys_.begin()),
             static_cast<std::uint32_t>(end - keys_.begin())};
    }
  }
  return rows;
}

} // namespace vorn::mv
