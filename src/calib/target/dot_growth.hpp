// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cmath>
#include <opencv2/core/types.hpp>
#include <optional>
#include <vector>

#include "calib/target/dot_candidate.hpp"
#include "calib/target/dot_grid.hpp"
#include "calib/target/point_buckets.hpp"

namespace vorn::mv {

/// Fewest dots that make a grid.
constexpr std::size_t leastGridSize = 9;

/// The steps from one dot of a grid to its next ones, in turning order.
std::array<cv::Point, 4> const unitSteps = {cv::Point(1, 0), cv::Point(0, 1), cv::Point(-1, 0),
                                            cv::Point(0, -1)};

/// The steps from a dot to its next ones along both grid directions, in the image.
struct Basis {
  cv::Point2d x;
  cv::Point2d y;

  cv::Point2d operator*(cv::Point const& step) const {
    return {x.x * step.x + y.x * step.y, x.y * step.x + y.y * step.y};
  }
  /// The grid step that leads along `offset`.
  cv::Point2d inverse(cv::Point2d const& offset) const {
    double const area = x.cross(y);
    return {offset.cross(y) / area, x.cross(offset) / area};
  }
  bool isRegular() const { return std::abs(x.cross(y)) > 0.05 * cv::norm(x) * cv::norm(y); }
};

/// Grows one grid over the candidates, dot by dot from a seed, each new one where its neighbour expects it.
class Growth {
public:
  Growth(std::vector<DotCandidate> const& candidates, std::vector<std::optional<GridCross>> const& crosses,
         PointBuckets const& buckets)
      : candidates_(candidates), crosses_(crosses), buckets_(buckets), isUsed_(candidates.size(), 0),
        place_(candidates.size(), GridIndex::none) {}

  /// Whether a candidate may start a grid: it has a cross and is in no grid yet.
  bool canStart(std::size_t candidate) const { return crosses_[candidate] && isUsed_[candidate] == 0; }

  /// The dots joined to `seed`, with indices counted from it; none when they are too few or contradict each
  /// other. Dots of a grid with enough of them are not used again.
  std::vector<GridDot> run(int seed);

private:
  void clear();

  void add(int candidate, cv::Point const& index, Basis const& basis);

  int nearest(cv::Point2d const& expected, Basis const& basis) const;

  void extend(std::size_t from, cv::Point const& step);

  std::vector<DotCandidate> const& candidates_;
  std::vector<std::optional<GridCross>> const& crosses_;
  PointBuckets const& buckets_;
  std::vector<char> isUsed_;
  std::vector<int> place_;
  GridIndex index_;
  std::vector<GridDot> dots_;
  std::vector<Basis> bases_;
  std::vector<char> isDoubtful_;
};

} // namespace vorn::mv
