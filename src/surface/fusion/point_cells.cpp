// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "surface/fusion/point_cells.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "core/radix_sort.hpp"

namespace vorn::mv {

namespace {

/// The layers of a grid's cells across one axis.
class Layers {
public:
  Layers(std::vector<cv::Vec3f> const& points, int axis, double size)
      : axis_(axis), size_(size), perCell_(1.0 / size) {
    double high = std::numeric_limits<double>::lowest();
    for (cv::Vec3f const& point : points) {
      low_ = std::min(low_, static_cast<double>(point[axis]));
      high = std::max(high, static_cast<double>(point[axis]));
    }
    count_ = points.empty() ? 1.0 : std::floor((high - low_) / size) + 1.0;
  }

  /// Leaves layers without points out, but for one wherever there are any: what lies on either side is not
  /// beside each other.
  void leaveOutEmpty(std::vector<cv::Vec3f> const& points) {
    for (cv::Vec3f const& point : points) {
      layers_.push_back(layerOf(point));
    }
    std::sort(layers_.begin(), layers_.end());
    layers_.erase(std::unique(layers_.begin(), layers_.end()), layers_.end());
    std::uint64_t next = 0;
    for (std::size_t i = 0; i < layers_.size(); ++i) {
      next += i == 0 ? 0 : layers_[i] - layers_[i - 1] > 1.0 ? 2 : 1;
      numbers_.push_back(next);
    }
    count_ = static_cast<double>(next + 1);
  }

  double count() const { return count_; }

  std::uint64_t of(cv::Vec3f const& point) const {
    if (!layers_.empty()) {
      auto const found = std::lower_bound(layers_.begin(), layers_.end(), layerOf(point));
      return numbers_[static_cast<std::size_t>(found - layers_.begin())];
    }
    auto const layer = static_cast<std::uint64_t>((static_cast<double>(point[axis_]) - low_) * perCell_);
    return std::min(layer, static_cast<std::uint64_t>(count_) - 1);
  }

private:
  // Not from the lowest point, which may be so far away that all others would be in one layer.
  double layerOf(cv::Vec3f const& point) const {
    return std::floor(static_cast<double>(point[axis_]) / size_);
  }

  int axis_;
  double size_;
  double perCell_;
  double low_ = std::numeric_limits<double>::max();
  double count_ = 0.0;
  std::vector<double> layers_;         ///< those with points, where empty ones are left out
  std::vector<std::uint64_t> numbers_; ///< of these
};

} // namespace

PointCells::PointCells(std::vector<cv::Vec3f> const& points, float size, Progress const& progress)
    : size_(size) {
  constexpr double mostCells = 9223372036854775808.0;
  constexpr double fewCells = 4294967296.0;
  constexpr float growth = 1.26F; // twice the volume
  auto const cellsOf = [](std::vector<Layers> const& axes) {
    return axes[0].count() * axes[1].count() * axes[2].count();
  };
  std::vector<Layers> layers;
  for (;; size_ *= growth) {
    layers.clear();
    for (int axis = 0; axis < 3; ++axis) {
      layers.emplace_back(points, axis, static_cast<double>(size_));
    }
    if (cellsOf(layers) > mostCells) {
      for (Layers& axis : layers) {
        axis.leaveOutEmpty(points);
      }
    }
    if (cellsOf(layers) <= mostCells) {
      break;
    }
  }
  for (std::size_t axis = 0; axis < 3; ++axis) {
    counts_[axis] = static_cast<std::uint64_t>(layers[axis].count());
  }
  auto const keyOf = [&](cv::Vec3f const& point) {
    return (layers[2].of(point) * counts_[1] + layers[1].of(point)) * counts_[0] + layers[0].of(point);
  };
  auto const add = [&](std::uint64_t key, std::uint32_t point) {
    if (keys_.empty() || keys_.back() != key) {
      keys_.push_back(key);
      starts_.push_back(static_cast<std::uint32_t>(order_.size()));
    }
    order_.push_back(point);
  };
  order_.reserve(points.size());
  if (cellsOf(layers) <= fewCells) {
    std::vector<std::uint64_t> sorted(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
      sorted[i] = keyOf(points[i]) << 32U | i;
    }
    std::vector<std::uint64_t> spare;
    constexpr unsigned digitBits = 11;
    sortByUpperHalf<digitBits, KeyOrder::Rising>(sorted, spare, progress);
    for (std::uint64_t const entry : sorted) {
      add(entry >> 32U, static_cast<std::uint32_t>(entry));
    }
  } else {
    progress.at("sorting points", 0.0);
    std::vector<std::pair<std::uint64_t, std::uint32_t>> sorted(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
      sorted[i] = {keyOf(points[i]), static_cast<std::uint32_t>(i)};
    }
    std::sort(sorted.begin(), sorted.end());
    for (auto const& [key, point] : sorted) {
      add(key, point);
    }
  }
  starts_.push_back(static_cast<std::uint32_t>(points.size()));
}

std::array<PointCells::Range, 9> PointCells::around(std::uint32_t cell) const {
  std::uint64_t const key = keys_[cell];
  std::uint64_t const x = key % counts_[0];
  std::uint64_t const y = key / counts_[0] % counts_[1];
  std::uint64_t const z = key / counts_[0] / counts_[1];
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
      std::uint64_t const middle = key + static_cast<std::uint64_t>(down) * counts_[1] * counts_[0] +
                                   static_cast<std::uint64_t>(aside) * counts_[0];
      std::uint64_t const first = x > 0 ? middle - 1 : middle;
      std::uint64_t const last = x + 1 < counts_[0] ? middle + 1 : middle;
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
