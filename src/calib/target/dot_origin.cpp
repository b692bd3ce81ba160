// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/dot_origin.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "calib/target/dot_growth.hpp"
#include "calib/target/dot_radius.hpp"
#include "calib/target/marker_ring.hpp"
#include "calib/target/target_map.hpp"
#include "core/median.hpp"

namespace vorn::mv {
namespace {

/// A marker's area is 2.25 times an ordinary dot's; this bound lies between, in the middle of the diameters.
constexpr double leastMarkerRatio = 1.5;

/// Where the origin lies and which grid steps lead along +x and +y.
struct Orientation {
  cv::Point origin;
  cv::Point x;
  cv::Point y;
  bool isMarked = false;
};

double medianOfPositive(std::vector<double> values) {
  values.erase(std::remove_if(values.begin(), values.end(), [](double v) { return v <= 0; }), values.end());
  return medianOf(std::move(values));
}

/// Where on a grid markers may stand: at its dots and in its gaps.
cv::Rect extentOf(RawGrid const& grid) {
  cv::Rect extent;
  for (GridDot const& dot : grid.dots()) {
    extent |= cv::Rect(dot.index, cv::Size(1, 1));
  }
  return extent;
}

/// Whether a turn from +x to +y of the grid's indices is one in the image too.
bool turnsAsImage(RawGrid const& grid) {
  for (int i = 0; i < static_cast<int>(grid.dots().size()); ++i) {
    auto const x = grid.stepAt(i, {1, 0});
    auto const y = grid.stepAt(i, {0, 1});
    if (x && y) {
      return x->cross(*y) > 0;
    }
  }
  return true;
}

/// The arms of an L at a place on the grid, one turn after the other.
struct Arms {
  cv::Point first;
  cv::Point second;
};

std::array<Arms, 4> armsAround() {
  std::array<Arms, 4> arms;
  for (std::size_t k = 0; k < arms.size(); ++k) {
    arms[k] = {unitSteps[k], unitSteps[(k + 1) % unitSteps.size()]};
  }
  return arms;
}

/// The corners of Ls that three markers form, seen from the front of the target. `isMarker(index)` tells
/// where markers are.
template <class IsMarker>
std::vector<Orientation> markedCorners(RawGrid const& grid, IsMarker const& isMarker) {
  cv::Rect const extent = extentOf(grid);
  bool const isFirstX = turnsAsImage(grid);
  std::vector<Orientation> corners;
  for (int y = extent.y; y < extent.br().y; ++y) {
    for (int x = extent.x; x < extent.br().x; ++x) {
      cv::Point const index(x, y);
      if (!isMarker(index)) {
        continue;
      }
      for (auto const& [a, b] : armsAround()) {
        if (isMarker(index + a) && isMarker(index + b) && !isMarker(index - a) && !isMarker(index - b) &&
            !isMarker(index + a + b)) {
          corners.push_back({index, isFirstX ? a : b, isFirstX ? b : a, true});
        }
      }
    }
  }
  return corners;
}

/// Whether a dot stands at a place of the grid or may have run together with its neighbours there: a gap
/// among dots. Beyond the rim of a grid that is no rectangle along its axes, bright things are none of its
/// markers.
bool mayHoldDot(RawGrid const& grid, cv::Point const& index) {
  // Beside a slanting rim there are three.
  constexpr int leastNeighbours = 4;
  int neighbours = 0;
  for (int y = -1; y <= 1; ++y) {
    for (int x = -1; x <= 1; ++x) {
      neighbours += grid.at(index + cv::Point(x, y)) != GridIndex::none ? 1 : 0;
    }
  }
  return grid.at(index) != GridIndex::none || neighbours >= leastNeighbours;
}

/// How bright the image is over a grid where only markers are, half way between the rims of an ordinary dot
/// and a marker; in the gaps of the grid too, for a marker may have run together with its neighbour.
class RingBrightness {
public:
  RingBrightness(cv::Mat const& image, RawGrid const& grid, double dotRadius) : extent_(extentOf(grid)) {
    std::vector<TargetDot> dots;
    for (int i = 0; i < static_cast<int>(grid.dots().size()); ++i) {
      dots.push_back({grid.dots()[static_cast<std::size_t>(i)].index, grid.centre(i)});
    }
    auto const map = TargetMap::fit(dots);
    cv::Rect2d const inside(0, 0, image.cols, image.rows);
    for (int y = extent_.y; y < extent_.br().y; ++y) {
      for (int x = extent_.x; x < extent_.br().x; ++x) {
        auto const local =
            map && mayHoldDot(grid, {x, y}) ? map->around({x, y}, TargetMap::Self::Included) : std::nullopt;
        bool const isInView = local && inside.contains(local->position(cv::Point(x, y)));
        auto const ring = isInView ? markerRing(image, local->position(cv::Point(x, y)),
                                                local->jacobian(cv::Point(x, y)), dotRadius)
                                   : std::nullopt;
        values_.push_back(ring.value_or(0));
        if (ring) {
          seen_.push_back(*ring);
        }
      }
    }
  }

  double at(cv::Point const& index) const {
    return extent_.contains(index) ? values_[static_cast<std::size_t>((index.y - extent_.y) * extent_.width +
                                                                      index.x - extent_.x)]
                                   : 0.0;
  }

  /// The brightness from which on a place is a marker's: most of the way from the usual one to that of the
  /// brightest L, so that single bright things elsewhere do not raise it.
  double leastOfMarkers() const {
    constexpr double leastExcess = 0.15;   // above the ordinary dots; a sharp image gives 1
    constexpr double shareOfMarker = 0.65; // more than half: what lies beside a dot may brighten its ring
    double const usual = medianOf(seen_);
    double best = 0;
    for (int y = extent_.y; y < extent_.br().y; ++y) {
      for (int x = extent_.x; x < extent_.br().x; ++x) {
        for (auto const& [a, b] : armsAround()) {
          cv::Point const index(x, y);
          best = std::max(best, std::min({at(index), at(index + a), at(index + b)}));
        }
      }
    }
    return usual + std::max(leastExcess, shareOfMarker * (best - usual));
  }

private:
  cv::Rect extent_;
  std::vector<double> values_; ///< 0 where no dot is
  std::vector<double> seen_;
};

/// The dot nearest the middle of the grid, x along the image's columns.
std::optional<Orientation> middleOrientation(RawGrid const& grid) {
  cv::Point2d mean;
  for (int i = 0; i < static_cast<int>(grid.dots().size()); ++i) {
    mean += grid.centre(i) * (1.0 / static_cast<double>(grid.dots().size()));
  }
  Orientation orientation;
  int middle = 0;
  double least = std::numeric_limits<double>::infinity();
  for (int i = 0; i < static_cast<int>(grid.dots().size()); ++i) {
    double const distance = cv::norm(grid.centre(i) - mean);
    if (distance < least && grid.stepAt(i, {1, 0}) && grid.stepAt(i, {0, 1})) {
      least = distance;
      middle = i;
      orientation.origin = grid.dots()[static_cast<std::size_t>(i)].index;
    }
  }
  if (!std::isfinite(least)) {
    return std::nullopt;
  }
  auto const inImage = [&](cv::Point const& step) {
    cv::Point2d const way = *grid.stepAt(middle, {std::abs(step.x), std::abs(step.y)});
    return way * static_cast<double>(step.x + step.y);
  };
  double mostAlong = 0;
  for (cv::Point const& step : unitSteps) {
    cv::Point2d const way = inImage(step);
    double const along = way.x / cv::norm(way);
    if (along > mostAlong) {
      mostAlong = along;
      orientation.x = step;
    }
  }
  orientation.y = {orientation.x.y, orientation.x.x};
  if (inImage(orientation.x).cross(inImage(orientation.y)) < 0) {
    orientation.y = -orientation.y;
  }
  return orientation;
}

/// The grid's dots with indices counted from the origin, without those that are no dots of the target by
/// size.
DotGrid oriented(RawGrid const& grid, Orientation const& orientation, std::vector<double> const& shares,
                 double ordinaryShare, std::vector<char> const& isMarker, TargetSettings const& settings) {
  DotGrid result;
  result.isOriginMarked = orientation.isMarked;
  for (std::size_t i = 0; i < grid.dots().size(); ++i) {
    cv::Point const raw = grid.dots()[i].index - orientation.origin;
    cv::Point const index(raw.dot(orientation.x), raw.dot(orientation.y));
    bool const isMarkerPlace = orientation.isMarked && index.x >= 0 && index.y >= 0 && index.x + index.y <= 1;
    bool const isTooSmall = shares[i] > 0 && shares[i] < settings.minAreaMultiplier * ordinaryShare;
    // Markers at one end of a large pattern of holes or lamps: it is no target there, and has no place.
    if ((isMarker[i] != 0) == isMarkerPlace && !isTooSmall && GridIndex::contains(index)) {
      result.dots.push_back({grid.dots()[i].candidate, index});
    }
  }
  return result;
}

} // namespace

std::vector<DotGrid> settleOrigin(cv::Mat const& image, RawGrid const& grid, TargetSettings const& settings) {
  std::vector<double> const shares = grid.areaShares();
  double const ordinary = medianOfPositive(shares);
  double const dotRadius = radiusByLight(image, grid);
  std::vector<char> isMarker;
  isMarker.reserve(shares.size());
  for (double const share : shares) {
    isMarker.push_back(share >= leastMarkerRatio * ordinary &&
                       share <= settings.maxAreaMultiplier * ordinary);
  }
  std::vector<Orientation> corners = markedCorners(grid, [&](cv::Point const& index) {
    int const dot = grid.at(index);
    return dot != GridIndex::none && isMarker[static_cast<std::size_t>(dot)] != 0;
  });
  bool areMarkersClear = corners.size() == 1;
  if (!areMarkersClear) {
    // Areas of blobs are coarse where dots are small, slanted or blurred.
    RingBrightness const rings(image, grid, dotRadius);
    double const least = rings.leastOfMarkers();
    auto const byRings =
        markedCorners(grid, [&](cv::Point const& index) { return rings.at(index) >= least; });
    if (byRings.size() == 1) {
      corners = byRings;
      for (std::size_t i = 0; i < isMarker.size(); ++i) {
        isMarker[i] = rings.at(grid.dots()[i].index) >= least;
      }
    }
  }
  std::vector<DotGrid> readings;
  auto const read = [&](Orientation const& orientation) {
    readings.push_back(oriented(grid, orientation, shares, ordinary, isMarker, settings));
    readings.back().areMarkersClear = areMarkersClear;
    readings.back().dotRadius = dotRadius;
  };
  if (corners.size() == 1) {
    read(corners.front());
  }
  if (auto const middle = middleOrientation(grid)) {
    read(*middle);
  }
  return readings;
}

} // namespace vorn::mv
