// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/dot_origin.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "calib/dot_growth.hpp"
#include "calib/marker_ring.hpp"
#include "core/median.hpp"

namespace vorn::mv {
namespace {

/// A marker's area is 2.25 times an ordinary dot's; this bound lies between, in the middle of the diameters.
constexpr double leastMarkerRatio = 1.5;

/// Where the origin lies and which grid steps lead along +x and +y.
struct Orientation {
  int origin = 0;
  cv::Point x;
  cv::Point y;
  bool isMarked = false;
};

double medianOfPositive(std::vector<double> values) {
  values.erase(std::remove_if(values.begin(), values.end(), [](double v) { return v <= 0; }), values.end());
  return medianOf(std::move(values));
}

/// The dots that are bright where only a marker is, half way between the rims of an ordinary dot and a
/// marker.
std::vector<char> findWideDots(cv::Mat const& image, RawGrid const& grid) {
  constexpr double leastExcess = 0.15;   // above the ordinary dots; a sharp image gives 1
  constexpr double shareOfMarker = 0.65; // more than half way: what lies beside a dot may brighten its ring
  std::vector<double> brightness;
  for (int i = 0; i < static_cast<int>(grid.dots().size()); ++i) {
    auto const x = grid.stepAt(i, {1, 0});
    auto const y = grid.stepAt(i, {0, 1});
    brightness.push_back(x && y ? markerRing(image, grid.centre(i), {x->x, y->x, x->y, y->y}) : 0.0);
  }
  double const usual = medianOf(brightness);
  std::vector<double> sorted = brightness;
  auto const third = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size()) - 3;
  std::nth_element(sorted.begin(), third, sorted.end());
  double const threshold = usual + std::max(leastExcess, shareOfMarker * (*third - usual));
  std::vector<char> isWide;
  for (double const value : brightness) {
    isWide.push_back(value >= threshold);
  }
  return isWide;
}

/// The corners of Ls that three marker dots form, seen from the front of the target.
std::vector<Orientation> markedCorners(RawGrid const& grid, std::vector<char> const& isMarker) {
  auto const markerAt = [&](cv::Point const& index) {
    int const dot = grid.at(index);
    return dot != GridIndex::none && isMarker[static_cast<std::size_t>(dot)] != 0;
  };
  std::vector<Orientation> corners;
  for (std::size_t i = 0; i < grid.dots().size(); ++i) {
    cv::Point const index = grid.dots()[i].index;
    for (std::size_t k = 0; isMarker[i] != 0 && k < unitSteps.size(); ++k) {
      cv::Point const a = unitSteps[k];
      cv::Point const b = unitSteps[(k + 1) % unitSteps.size()];
      if (!markerAt(index + a) || !markerAt(index + b) || markerAt(index - a) || markerAt(index - b) ||
          markerAt(index + a + b)) {
        continue;
      }
      int const origin = static_cast<int>(i);
      cv::Point2d const toA = grid.centre(grid.at(index + a)) - grid.centre(origin);
      cv::Point2d const toB = grid.centre(grid.at(index + b)) - grid.centre(origin);
      bool const aIsX = toA.cross(toB) > 0;
      corners.push_back({origin, aIsX ? a : b, aIsX ? b : a, true});
    }
  }
  return corners;
}

/// The dot nearest the middle of the grid, x along the image's columns.
std::optional<Orientation> middleOrientation(RawGrid const& grid) {
  cv::Point2d mean;
  for (int i = 0; i < static_cast<int>(grid.dots().size()); ++i) {
    mean += grid.centre(i) * (1.0 / static_cast<double>(grid.dots().size()));
  }
  Orientation orientation;
  double least = std::numeric_limits<double>::infinity();
  for (int i = 0; i < static_cast<int>(grid.dots().size()); ++i) {
    double const distance = cv::norm(grid.centre(i) - mean);
    if (distance < least && grid.stepAt(i, {1, 0}) && grid.stepAt(i, {0, 1})) {
      least = distance;
      orientation.origin = i;
    }
  }
  if (!std::isfinite(least)) {
    return std::nullopt;
  }
  auto const inImage = [&](cv::Point const& step) {
    cv::Point2d const way = *grid.stepAt(orientation.origin, {std::abs(step.x), std::abs(step.y)});
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
  cv::Point const origin = grid.dots()[static_cast<std::size_t>(orientation.origin)].index;
  for (std::size_t i = 0; i < grid.dots().size(); ++i) {
    cv::Point const raw = grid.dots()[i].index - origin;
    cv::Point const index(raw.dot(orientation.x), raw.dot(orientation.y));
    bool const isMarkerPlace = orientation.isMarked && index.x >= 0 && index.y >= 0 && index.x + index.y <= 1;
    bool const isTooSmall = shares[i] > 0 && shares[i] < settings.minAreaMultiplier * ordinaryShare;
    if ((isMarker[i] != 0) == isMarkerPlace && !isTooSmall) {
      result.dots.push_back({grid.dots()[i].candidate, index});
    }
  }
  return result;
}

} // namespace

std::optional<DotGrid> settleOrigin(cv::Mat const& image, RawGrid const& grid,
                                    TargetSettings const& settings) {
  std::vector<double> const shares = grid.areaShares();
  double const ordinary = medianOfPositive(shares);
  std::vector<char> isMarker;
  for (double const share : shares) {
    isMarker.push_back(share >= leastMarkerRatio * ordinary &&
                       share <= settings.maxAreaMultiplier * ordinary);
  }
  std::vector<Orientation> corners = markedCorners(grid, isMarker);
  if (corners.size() != 1) {
    // Areas of blobs are coarse where dots are small, slanted or blurred.
    std::vector<char> const hasWideRing = findWideDots(image, grid);
    std::vector<Orientation> const byRings = markedCorners(grid, hasWideRing);
    if (byRings.size() == 1) {
      corners = byRings;
      isMarker = hasWideRing;
    }
  }
  if (corners.size() > 1) {
    return std::nullopt;
  }
  std::optional<Orientation> const orientation =
      corners.size() == 1 ? std::optional(corners.front()) : middleOrientation(grid);
  if (!orientation) {
    return std::nullopt;
  }
  return oriented(grid, *orientation, shares, ordinary, isMarker, settings);
}

} // namespace vorn::mv
