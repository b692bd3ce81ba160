// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "surface/even_spacing.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <numeric>
#include <utility>

#include "core/radix_sort.hpp"

namespace vorn::mv {

namespace {

using Places = std::vector<cv::Vec2d>;
using Keys = std::vector<std::int64_t>;

struct Box {
  cv::Vec2d low = cv::Vec2d::all(std::numeric_limits<double>::max());
  cv::Vec2d high = -low;
  void add(cv::Vec2d const& place) {
    for (int axis = 0; axis < 2; ++axis) {
      low[axis] = std::min(low[axis], place[axis]);
      high[axis] = std::max(high[axis], place[axis]);
    }
  }
  cv::Vec2d size() const { return high - low; }
};

/// Squares beside each other have keys that differ by these.
constexpr std::int64_t nextColumn = 1;
constexpr std::int64_t nextRow = std::int64_t(1) << 32;

std::int64_t keyOf(cv::Vec2d const& place, cv::Vec2d const& origin, double square) {
  constexpr double most = 1 << 30;
  auto const step = [&](int axis) {
    return static_cast<std::int64_t>(
        std::clamp(std::floor((place[axis] - origin[axis]) / square), -most, most));
  };
  return step(1) * nextRow + step(0) * nextColumn;
}

/// The row of a square, whatever its column below 2^31.
std::int64_t rowOf(std::int64_t key) {
  return (key + nextRow / 2) >> 32;
}
std::int64_t columnOf(std::int64_t key) {
  return key - rowOf(key) * nextRow;
}

/// Sorts keys by their digits where rows and columns are few enough to number the squares in 32 bits: of
/// millions of keys that takes a fraction of the time.
void sortKeys(Keys& keys) {
  std::int64_t low[2] = {std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::max()};
  std::int64_t high[2] = {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::min()};
  for (std::int64_t const key : keys) {
    std::int64_t const steps[2] = {rowOf(key), columnOf(key)};
    for (int axis = 0; axis < 2; ++axis) {
      low[axis] = std::min(low[axis], steps[axis]);
      high[axis] = std::max(high[axis], steps[axis]);
    }
  }
  constexpr std::int64_t most = std::int64_t(1) << 32;
  std::int64_t const rows = keys.empty() ? 0 : high[0] - low[0] + 1;
  std::int64_t const columns = keys.empty() ? 0 : high[1] - low[1] + 1;
  if (keys.size() < radixSortThreshold || rows > most / columns) {
    std::sort(keys.begin(), keys.end());
    return;
  }
  std::vector<std::uint64_t> numbers;
  numbers.reserve(keys.size());
  for (std::int64_t const key : keys) {
    numbers.push_back(static_cast<std::uint64_t>((rowOf(key) - low[0]) * columns + columnOf(key) - low[1])
                      << 32);
  }
  std::vector<std::uint64_t> other;
  sortByUpperHalf<11, KeyOrder::Rising>(numbers, other);
  for (std::size_t i = 0; i < keys.size(); ++i) {
    auto const number = static_cast<std::int64_t>(numbers[i] >> 32);
    keys[i] = (low[0] + number / columns) * nextRow + low[1] + number % columns;
  }
}

/// The squares with points, a key for each point.
Keys sortedKeys(Places const& places, cv::Vec2d const& origin, double square) {
  Keys keys;
  keys.reserve(places.size());
  for (cv::Vec2d const& place : places) {
    keys.push_back(keyOf(place, origin, square));
  }
  sortKeys(keys);
  return keys;
}

std::size_t occupiedCount(Places const& places, cv::Vec2d const& origin, double square) {
  Keys keys = sortedKeys(places, origin, square);
  return static_cast<std::size_t>(std::unique(keys.begin(), keys.end()) - keys.begin());
}

/// What `side` of the number of places gives when points nearer than a part of it are one.
/// @param side of a number of places, no smaller for fewer
template <class SideOf>
double mergedSide(Places const& places, cv::Vec2d const& origin, SideOf const& sideOf) {
  // Of points strewn at random so few are merged that the side grows by 4 %, rows of points far denser than
  // their distance get two cells and a half between them.
  constexpr double sidesOverReach = 2.5;
  constexpr int mostRounds = 20;
  constexpr double settled = 1.005;
  double side = sideOf(places.size());
  for (int round = 0; round < mostRounds && side > 0.0; ++round) {
    double const next = sideOf(occupiedCount(places, origin, side / sidesOverReach));
    bool const isSettled = next < settled * side;
    side = std::max(side, next);
    if (isSettled) {
      break;
    }
  }
  return side;
}

/// Where most points lie: without those farther from the quarters in the middle than twice their distance.
/// An axis that half the points share a coordinate of is not limited.
struct Bulk {
  cv::Vec2d middle;
  cv::Vec2d quarters; ///< from the first quartile to the third
  Places places;
  Box box;
};

Bulk bulkOf(std::vector<cv::Vec3d> const& points) {
  Bulk bulk;
  cv::Vec2d low;
  cv::Vec2d high;
  std::vector<double> values(points.size());
  for (int axis = 0; axis < 2; ++axis) {
    std::transform(points.begin(), points.end(), values.begin(),
                   [axis](cv::Vec3d const& point) { return point[axis]; });
    auto const at = [&](std::size_t part) {
      auto const nth = values.begin() + static_cast<std::ptrdiff_t>((values.size() - 1) * part / 4);
      std::nth_element(values.begin(), nth, values.end());
      return *nth;
    };
    double const first = at(1);
    double const third = at(3);
    bulk.middle[axis] = at(2);
    bulk.quarters[axis] = third - first;
    double const reach = third > first ? 2.0 * (third - first) : std::numeric_limits<double>::max();
    low[axis] = first - reach;
    high[axis] = third + reach;
  }
  bulk.places.reserve(points.size());
  for (cv::Vec3d const& point : points) {
    if (point[0] >= low[0] && point[0] <= high[0] && point[1] >= low[1] && point[1] <= high[1]) {
      bulk.places.emplace_back(point[0], point[1]);
      bulk.box.add(bulk.places.back());
    }
  }
  return bulk;
}

struct Square {
  std::int64_t key;
  std::size_t count;
};

/// The squares whose eight neighbours have points too: they lie inside the cloud.
std::vector<Square> innerSquares(Keys const& keys) {
  std::vector<Square> squares;
  for (std::int64_t const key : keys) {
    if (squares.empty() || squares.back().key != key) {
      squares.push_back({key, 0});
    }
    ++squares.back().count;
  }
  constexpr std::size_t fewPoints = 4; // in a square: no use to ask further
  if (keys.size() < fewPoints * squares.size()) {
    return {};
  }
  auto const isOccupied = [&](std::int64_t key) {
    auto const found =
        std::lower_bound(squares.begin(), squares.end(), key,
                         [](Square const& square, std::int64_t other) { return square.key < other; });
    return found != squares.end() && found->key == key;
  };
  std::vector<Square> inner;
  std::copy_if(squares.begin(), squares.end(), std::back_inserter(inner), [&](Square const& square) {
    for (std::int64_t const row : {-nextRow, std::int64_t(0), nextRow}) {
      for (std::int64_t const column : {-nextColumn, std::int64_t(0), nextColumn}) {
        if (!isOccupied(square.key + row + column)) {
          return false;
        }
      }
    }
    return true;
  });
  return inner;
}

/// The middle half of the squares by how many points they hold, sorted by key; no more than are worth
/// counting.
Keys middleSquares(std::vector<Square> inner) {
  std::sort(inner.begin(), inner.end(), [](Square const& a, Square const& b) {
    return a.count != b.count ? a.count < b.count : a.key < b.key;
  });
  inner.erase(inner.end() - static_cast<std::ptrdiff_t>(inner.size() / 4), inner.end());
  inner.erase(inner.begin(), inner.begin() + static_cast<std::ptrdiff_t>(inner.size() / 3));
  std::size_t const points =
      std::accumulate(inner.begin(), inner.end(), std::size_t(0),
                      [](std::size_t sum, Square const& square) { return sum + square.count; });
  constexpr std::size_t mostPoints = 100000;
  std::size_t const stride = points / mostPoints + 1;
  Keys keys;
  for (std::size_t i = 0; i < inner.size(); i += stride) {
    keys.push_back(inner[i].key);
  }
  std::sort(keys.begin(), keys.end());
  return keys;
}

/// By the squares inside the cloud, as small ones as hold some points; 0 where it has no inside.
double sideInside(Bulk const& bulk) {
  auto const count = static_cast<double>(bulk.places.size());
  double const area = bulk.quarters[0] * bulk.quarters[1];
  double const most = std::max(bulk.quarters[0], bulk.quarters[1]);
  constexpr double enoughPoints = 16.0;
  for (double square = std::sqrt(area / count) / 4.0; square > 0.0 && square < most; square *= 2.0) {
    // The rows of a regular cloud shall not lie where squares meet.
    cv::Vec2d const origin = bulk.middle - cv::Vec2d::all(0.37 * square);
    std::vector<Square> const inner = innerSquares(sortedKeys(bulk.places, origin, square));
    double const held = std::accumulate(inner.begin(), inner.end(), 0.0, [](double sum, Square const& each) {
      return sum + static_cast<double>(each.count);
    });
    if (held < count / 4.0 || held < enoughPoints * static_cast<double>(inner.size())) {
      continue;
    }
    Keys const keys = middleSquares(inner);
    Places chosen;
    std::copy_if(bulk.places.begin(), bulk.places.end(), std::back_inserter(chosen),
                 [&](cv::Vec2d const& place) {
                   return std::binary_search(keys.begin(), keys.end(), keyOf(place, origin, square));
                 });
    return mergedSide(chosen, origin, [&](std::size_t places) {
      return square * std::sqrt(static_cast<double>(keys.size()) / static_cast<double>(places));
    });
  }
  return 0.0;
}

/// The side of as many squares as there are places, which reach half a side beyond the outermost of them:
/// exact for a square grid.
double sideOfBox(cv::Vec2d const& size, std::size_t places) {
  if (places < 2) {
    return 0.0;
  }
  double const more = static_cast<double>(places) - 1.0;
  double const half = (size[0] + size[1]) / 2.0;
  return (half + std::sqrt(half * half + more * size[0] * size[1])) / more;
}

/// The side where nothing is three squares wide: of narrow shapes, rims or frames, most of the box is empty.
/// The squares that hold places, of a few sides each, tell the area.
double sideOfNarrow(Bulk const& bulk) {
  constexpr double sidesASquare = 3.0;
  constexpr int mostRounds = 30;
  constexpr double settled = 0.99;
  cv::Vec2d const size = bulk.box.size();
  std::size_t const all = bulk.places.size();
  double const most =
      mergedSide(bulk.places, bulk.box.low, [&](std::size_t places) { return sideOfBox(size, places); });
  double side = sideOfBox(size, all);
  for (int round = 0; round < mostRounds && side > 0.0; ++round) {
    double const square = sidesASquare * side;
    auto const held = static_cast<double>(occupiedCount(bulk.places, bulk.box.low, square));
    double const next = square * std::sqrt(held / static_cast<double>(all));
    if (next > settled * side) {
      break;
    }
    side = next;
  }
  // Places that are there several times make it too small.
  constexpr double reach = 2.5;
  constexpr double mostlyApart = 0.9;
  auto const apart = side > 0.0 ? static_cast<double>(occupiedCount(bulk.places, bulk.box.low, side / reach))
                                : static_cast<double>(all);
  if (apart < mostlyApart * static_cast<double>(all)) {
    constexpr double mostTimes = 10.0;
    return std::min(most, mostTimes * side);
  }
  return std::min(most, side);
}

} // namespace

double evenSpacingOf(std::vector<cv::Vec3d> const& points) {
  Bulk const bulk = bulkOf(points);
  cv::Vec2d const size = bulk.box.size();
  double const side = sideInside(bulk);
  if (side == 0.0) {
    return sideOfNarrow(bulk);
  }
  // Few squares of a regular grid hold a row more or less than they are wide; its box is exact.
  std::size_t const places = occupiedCount(bulk.places, bulk.box.low, side / 2.0);
  double const whole = sideOfBox(size, places);
  constexpr double likely = 1.25;
  if (whole < side / likely || whole > side * likely) {
    return side;
  }
  cv::Vec2d const corner = bulk.box.low - cv::Vec2d::all(whole / 2.0);
  double const cells = std::round(size[0] / whole + 1.0) * std::round(size[1] / whole + 1.0);
  constexpr double full = 0.95;
  return static_cast<double>(occupiedCount(bulk.places, corner, whole)) > full * cells ? whole : side;
}

} // namespace vorn::mv
