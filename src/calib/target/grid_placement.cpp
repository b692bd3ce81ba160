// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/grid_placement.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <optional>
#include <utility>

#include <opencv2/imgproc.hpp>

namespace vorn::mv {
namespace {

/// Share of a target's dots that may be missing, and of others that may stand beyond its rim.
constexpr double mostMissing = 0.5;
constexpr double mostBeyond = 0.03;

/// A way to count a grid as a target's: index on the target = turn(index) - shift.
struct Reading {
  int quarterTurns = 0;
  cv::Point shift;
  int inside = 0;
};

cv::Point turned(cv::Point p, int quarterTurns) {
  for (int i = 0; i < quarterTurns; ++i) {
    p = {-p.y, p.x};
  }
  return p;
}

class Placing {
public:
  Placing(std::vector<TargetDot> const& dots, TargetDescription const& target)
      : dots_(dots), target_(target), isStaggered_(target.kind == TargetKind::StaggeredCircles),
        extent_(isStaggered_ ? 2 * target.size.width : target.size.width, target.size.height) {}

  /// A dot's index in the target's units, not shifted yet. The lattice of a staggered grid runs along its
  /// diagonals.
  cv::Point indexOf(cv::Point const& lattice, int quarterTurns) const {
    cv::Point const p = turned(lattice, quarterTurns);
    return isStaggered_ ? cv::Point(p.x - p.y, p.x + p.y) : p;
  }
  cv::Point latticeOf(cv::Point const& index, Reading const& reading) const {
    cv::Point const p = index + reading.shift;
    cv::Point const lattice = isStaggered_ ? cv::Point((p.x + p.y) / 2, (p.y - p.x) / 2) : p;
    return turned(lattice, (4 - reading.quarterTurns) % 4);
  }

  /// The shift at which most dots lie on the target, if it is one only.
  std::optional<Reading> bestShift(int quarterTurns) const {
    std::vector<cv::Point> places;
    for (TargetDot const& dot : dots_) {
      places.push_back(indexOf(dot.index, quarterTurns));
    }
    cv::Rect const box = cv::boundingRect(places);
    std::optional<Reading> best;
    int most = 0;
    for (int y = box.y; y <= box.br().y - extent_.height; ++y) {
      for (int x = box.x; x <= box.br().x - extent_.width; ++x) {
        cv::Rect const window({x, y}, extent_);
        if (isStaggered_ && (x + y) % 2 != 0) {
          continue;
        }
        int const inside = countInside(places, window);
        if (inside == most) {
          best.reset();
        } else if (inside > most) {
          most = inside;
          best = Reading{quarterTurns, {x, y}, inside};
        }
      }
    }
    bool const isFull =
        best && reachesAllSides(*best) && best->inside >= (1 - mostMissing) * target_.size.area();
    auto const beyond = static_cast<double>(dots_.size()) - most;
    return isFull && beyond <= mostBeyond * target_.size.area() ? best : std::nullopt;
  }

private:
  static int countInside(std::vector<cv::Point> const& places, cv::Rect const& window) {
    return static_cast<int>(std::count_if(places.begin(), places.end(),
                                          [&](cv::Point const& place) { return window.contains(place); }));
  }

  /// Whether dots stand at all four sides of the target.
  bool reachesAllSides(Reading const& reading) const {
    std::array<bool, 4> sides = {};
    for (TargetDot const& dot : dots_) {
      cv::Point const place = indexOf(dot.index, reading.quarterTurns) - reading.shift;
      if (cv::Rect({}, extent_).contains(place)) {
        sides[0] = sides[0] || place.x == 0;
        sides[1] = sides[1] || place.x == extent_.width - 1;
        sides[2] = sides[2] || place.y == 0;
        sides[3] = sides[3] || place.y == extent_.height - 1;
      }
    }
    return std::all_of(sides.begin(), sides.end(), [](bool side) { return side; });
  }

  std::vector<TargetDot> const& dots_;
  TargetDescription const& target_;
  bool isStaggered_;
  cv::Size extent_;
};

/// The dots with the target's indices.
std::vector<TargetDot> placed(std::vector<TargetDot> const& dots, Placing const& placing,
                              Reading const& reading, TargetDescription const& target) {
  bool const isStaggered = target.kind == TargetKind::StaggeredCircles;
  cv::Rect const window(
      {}, cv::Size(isStaggered ? 2 * target.size.width : target.size.width, target.size.height));
  std::vector<TargetDot> result;
  for (TargetDot const& dot : dots) {
    cv::Point const index = placing.indexOf(dot.index, reading.quarterTurns) - reading.shift;
    if (window.contains(index)) {
      result.push_back({index + target.first, dot.centre, dot.radius});
    }
  }
  return result;
}

/// How much the target's columns run along the image's: the mean of x over the right half of the dots minus
/// that over the left one.
double alongColumns(std::vector<TargetDot> const& dots) {
  cv::Point2d meanIndex;
  cv::Point2d mean;
  for (TargetDot const& dot : dots) {
    meanIndex += cv::Point2d(dot.index) / static_cast<double>(dots.size());
    mean += dot.centre / static_cast<double>(dots.size());
  }
  double along = 0;
  double across = 0;
  for (TargetDot const& dot : dots) {
    double const x = dot.index.x - meanIndex.x;
    along += x * (dot.centre.x - mean.x);
    across += x * (dot.centre.y - mean.y);
  }
  return along / std::hypot(along, across);
}

} // namespace

GridPlacement
placeGrid(std::vector<TargetDot> const& dots, TargetDescription const& target,
          std::function<bool(cv::Point const& index)> const& isLarger,
          std::function<bool(cv::Point const& place, cv::Point const& index, int turns)> const& suits) {
  GridPlacement placement;
  Placing const placing(dots, target);
  std::vector<Reading> readings;
  for (int turns = 0; turns < 4; ++turns) {
    auto const reading = placing.bestShift(turns);
    if (reading && (!suits || suits(dots.front().index,
                                    placing.indexOf(dots.front().index, turns) - reading->shift, turns))) {
      readings.push_back(*reading);
    }
  }
  if (readings.empty()) {
    std::vector<cv::Point> places;
    for (TargetDot const& dot : dots) {
      places.push_back(placing.indexOf(dot.index, 0));
    }
    cv::Size const seen = cv::boundingRect(places).size();
    bool const isBoard = target.kind == TargetKind::Chessboard;
    placement.reason = "the " + std::to_string(dots.size()) +
                       (isBoard ? " corners of the board stand on " : " dots of the grid stand on ") +
                       std::to_string(seen.width) + " x " + std::to_string(seen.height) +
                       " places and are not the target's " + std::to_string(target.size.width) + " x " +
                       std::to_string(target.size.height) + " to all four sides";
    return placement;
  }
  if (!target.marks.empty()) {
    std::vector<Reading> marked;
    std::copy_if(readings.begin(), readings.end(), std::back_inserter(marked), [&](Reading const& reading) {
      return std::all_of(target.marks.begin(), target.marks.end(), [&](cv::Point const& mark) {
        return isLarger(placing.latticeOf(mark - target.first, reading));
      });
    });
    placement.isMarked = marked.size() == 1;
    readings = marked.empty() ? readings : marked;
  }
  placement.readings = static_cast<int>(readings.size());
  double most = -2;
  for (Reading const& reading : readings) {
    std::vector<TargetDot> candidate = placed(dots, placing, reading, target);
    double const along = alongColumns(candidate);
    if (along > most) {
      most = along;
      placement.dots = std::move(candidate);
    }
  }
  return placement;
}

} // namespace vorn::mv
