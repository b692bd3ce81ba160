// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <opencv2/core/types.hpp>
#include <vector>

namespace vorn::mv {

/// Points in the plane sorted into square cells, to find those near a place.
class PointBuckets {
public:
  /// Every call of `visit` gets points at most `cellSize` cells' width away quickly; any radius is allowed.
  PointBuckets(std::vector<cv::Point2d> const& points, double cellSize) {
    if (points.empty()) {
      return;
    }
    cv::Point2d high = points.front();
    low_ = high;
    for (cv::Point2d const& p : points) {
      low_ = {std::min(low_.x, p.x), std::min(low_.y, p.y)};
      high = {std::max(high.x, p.x), std::max(high.y, p.y)};
    }
    constexpr double mostCells = 512;
    cellSize_ = std::max({cellSize, (high.x - low_.x) / mostCells, (high.y - low_.y) / mostCells, 1e-6});
    columns_ = static_cast<int>((high.x - low_.x) / cellSize_) + 1;
    rows_ = static_cast<int>((high.y - low_.y) / cellSize_) + 1;
    starts_.assign(static_cast<std::size_t>(columns_) * static_cast<std::size_t>(rows_) + 1, 0);
    for (cv::Point2d const& p : points) {
      ++starts_[cellOf(p) + 1];
    }
    for (std::size_t i = 1; i < starts_.size(); ++i) {
      starts_[i] += starts_[i - 1];
    }
    order_.resize(points.size());
    std::vector<int> next(starts_.begin(), starts_.end() - 1);
    for (std::size_t i = 0; i < points.size(); ++i) {
      order_[static_cast<std::size_t>(next[cellOf(points[i])]++)] = static_cast<int>(i);
    }
  }

  /// Calls `visit(number)` for every point in the cells that a square of half side `radius` about `centre`
  /// touches: all points within the radius, and some beyond it.
  template <class Visit>
  void visitNear(cv::Point2d const& centre, double radius, Visit const& visit) const {
    if (order_.empty()) {
      return;
    }
    int const left = column(centre.x - radius);
    int const right = column(centre.x + radius);
    int const bottom = row(centre.y + radius);
    for (int y = row(centre.y - radius); y <= bottom; ++y) {
      auto const base = static_cast<std::size_t>(y) * static_cast<std::size_t>(columns_);
      int const end = starts_[base + static_cast<std::size_t>(right) + 1];
      for (int i = starts_[base + static_cast<std::size_t>(left)]; i < end; ++i) {
        visit(order_[static_cast<std::size_t>(i)]);
      }
    }
  }

private:
  int column(double x) const {
    return static_cast<int>(std::clamp(std::floor((x - low_.x) / cellSize_), 0.0, columns_ - 1.0));
  }
  int row(double y) const {
    return static_cast<int>(std::clamp(std::floor((y - low_.y) / cellSize_), 0.0, rows_ - 1.0));
  }
  std::size_t cellOf(cv::Point2d const& p) const {
    return static_cast<std::size_t>(row(p.y)) * static_cast<std::size_t>(columns_) +
           static_cast<std::size_t>(column(p.x));
  }

  cv::Point2d low_;
  double cellSize_ = 1;
  int columns_ = 0;
  int rows_ = 0;
  std::vector<int> starts_;
  std::vector<int> order_;
};

} // namespace vorn::mv
