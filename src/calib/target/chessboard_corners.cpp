// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/chessboard_corners.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <utility>

#include <opencv2/imgproc.hpp>

#include "calib/target/board_crossings.hpp"
#include "calib/target/board_neighbours.hpp"
#include "calib/target/corner_saddle.hpp"
#include "core/median.hpp"

namespace vorn::mv {
namespace {

/// Least contrast of a corner's squares, of the board's median.
constexpr double leastContrast = 0.25;

/// The way to a corner's neighbour along one axis, as from the one on the other side where there is none.
cv::Point2d stepAt(BoardCorners const& corners, cv::Point const& index, cv::Point const& along) {
  bool const isAfter = corners.has(index + along);
  bool const isBefore = corners.has(index - along);
  cv::Point2d const here = corners.at(index);
  cv::Point2d const after = isAfter ? corners.at(index + along) : here;
  cv::Point2d const before = isBefore ? corners.at(index - along) : here;
  return (after - before) * (isAfter && isBefore ? 0.5 : 1.0);
}

/// How a board lies around a corner: a square along x and along y.
Crossing crossingAt(BoardCorners const& corners, cv::Point const& index) {
  return {corners.at(index), stepAt(corners, index, {1, 0}), stepAt(corners, index, {0, 1})};
}

/// Whether there are crossings a square beyond one side of a board.
bool goesOn(cv::Mat const& smooth, BoardCorners const& corners, Judgement const& judgement,
            cv::Point const& outwards) {
  constexpr double leastShare = 0.5; // of the side's corners
  int seen = 0;
  int crossings = 0;
  for (int i = 0; i < corners.size.area(); ++i) {
    cv::Point const index(i % corners.size.width, i / corners.size.width);
    if (corners.has(index + outwards)) {
      continue;
    }
    ++seen;
    // Squares become smaller or larger at the rate that they did before.
    cv::Point2d const last = corners.at(index) - corners.at(index - outwards);
    cv::Point2d const before = corners.at(index - outwards) - corners.at(index - 2 * outwards);
    double const growth = std::clamp(cv::norm(last) / std::max(cv::norm(before), 1e-9), 0.5, 2.0);
    Crossing crossing = crossingAt(corners, index);
    crossing.centre += last * growth;
    int const x = index.x + outwards.x;
    int const y = index.y + outwards.y;
    bool const isDark = ((x + y) % 2 == 0) == judgement.isFirstDark;
    double const contrast = crossingContrast(smooth, crossing);
    crossings += (isDark ? contrast : -contrast) >= leastContrast * judgement.median ? 1 : 0;
  }
  return crossings >= leastShare * seen;
}

} // namespace

void refine(cv::Mat const& smooth, double doubt, BoardCorners& corners) {
  constexpr double windowInSquares = 0.25;
  constexpr int smallest = 2;
  constexpr int largest = 8;
  BoardCorners const rough = corners;
  corners.isSettled.assign(corners.places.size(), 0);
  for (int y = 0; y < corners.size.height; ++y) {
    for (int x = 0; x < corners.size.width; ++x) {
      Crossing const crossing = crossingAt(rough, {x, y});
      double const square = std::min(cv::norm(crossing.right), cv::norm(crossing.down));
      int const half = std::clamp(static_cast<int>(windowInSquares * square), smallest, largest);
      if (auto const saddle = settledSaddle(smooth, crossing.centre, half, doubt)) {
        auto const number = static_cast<std::size_t>(y * corners.size.width + x);
        corners.places[number] = *saddle;
        corners.isSettled[number] = 1;
      }
    }
  }
}

Judgement judge(cv::Mat const& smooth, BoardCorners const& corners) {
  Judgement judgement;
  std::vector<double> asFirst;
  for (int y = 0; y < corners.size.height; ++y) {
    for (int x = 0; x < corners.size.width; ++x) {
      double const contrast = crossingContrast(smooth, crossingAt(corners, {x, y}));
      judgement.contrasts.push_back(contrast);
      asFirst.push_back((x + y) % 2 == 0 ? contrast : -contrast);
    }
  }
  double const median = medianOf(std::move(asFirst));
  judgement.isFirstDark = median > 0;
  judgement.median = std::abs(median);
  return judgement;
}

JudgedBoard sieve(BoardCorners const& corners, Judgement const& judgement) {
  JudgedBoard board;
  auto const drop = [&](cv::Point2d const& place, char const* reason) {
    board.dropped.push_back({cv::Point2f(place), reason});
  };
  std::vector<TargetDot> crossings;
  for (int i = 0; i < corners.size.area(); ++i) {
    auto const number = static_cast<std::size_t>(i);
    cv::Point const index(i % corners.size.width, i / corners.size.width);
    if (judgement.at(number, index) < leastContrast * judgement.median) {
      drop(corners.at(index), "it is no crossing of two dark and two bright squares");
    } else if (corners.isSettled[number] == 0) {
      drop(corners.at(index), "the grey levels have no saddle there");
    } else {
      crossings.push_back({index, corners.at(index)});
    }
  }
  for (TargetDot const& corner : crossings) {
    Crossing const around = crossingAt(corners, corner.index);
    double const square = std::min(cv::norm(around.right), cv::norm(around.down));
    if (offsetFromNeighbours(crossings, corner).value_or(0) <= mostOffset(square)) {
      board.kept.push_back(corner);
    } else {
      drop(corner.centre, "it does not stand where its neighbours say");
    }
  }
  return board;
}

std::string usualReason(std::vector<DroppedDot> const& dropped) {
  std::map<std::string, int> counts;
  for (DroppedDot const& dot : dropped) {
    ++counts[dot.reason];
  }
  return std::max_element(counts.begin(), counts.end(),
                          [](auto const& a, auto const& b) { return a.second < b.second; })
      ->first;
}

bool goesOn(cv::Mat const& smooth, BoardCorners const& corners, Judgement const& judgement) {
  std::array<cv::Point, 4> const sides = {cv::Point(-1, 0), cv::Point(1, 0), cv::Point(0, -1),
                                          cv::Point(0, 1)};
  return std::any_of(sides.begin(), sides.end(),
                     [&](cv::Point const& outwards) { return goesOn(smooth, corners, judgement, outwards); });
}

} // namespace vorn::mv
