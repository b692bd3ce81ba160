// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/report/page_points.hpp"

#include "core/median.hpp"

namespace vorn::tools {

namespace {

constexpr unsigned axisBits = 21;

/// Puts two zeros behind each of the lower 21 bits.
std::uint64_t spread(std::uint64_t v) {
  v = (v | v << 32U) & 0x1f00000000ffffU;
  v = (v | v << 16U) & 0x1f0000ff0000ffU;
  v = (v | v << 8U) & 0x100f00f00f00f00fU;
  v = (v | v << 4U) & 0x10c30c30c30c30c3U;
  return (v | v << 2U) & 0x1249249249249249U;
}

/// How many cells of the octree hold points when the last bits of the keys are left out.
std::size_t cellCount(std::vector<Place> const& places, unsigned shift) {
  std::size_t cells = places.empty() ? 0 : 1;
  for (std::size_t n = 1; n < places.size(); ++n) {
    cells += places[n].key >> shift != places[n - 1].key >> shift ? 1 : 0;
  }
  return cells;
}

} // namespace

std::vector<Place> inOrder(std::vector<cv::Vec3f> const& points) {
  Box box;
  std::size_t count = 0;
  for (cv::Vec3f const& p : points) {
    if (isFinite(p)) {
      box.take(p);
      ++count;
    }
  }
  double side = 0.0;
  for (int i = 0; i < 3; ++i) {
    side = std::max(side, box.high[i] - box.low[i]);
  }
  double const cells = side > 0.0 ? static_cast<double>((1U << axisBits) - 1U) / side : 0.0;
  std::vector<Place> places;
  places.reserve(count);
  for (std::size_t n = 0; n < points.size(); ++n) {
    if (isFinite(points[n])) {
      std::uint64_t key = 0;
      for (int i = 0; i < 3; ++i) {
        double const cell = (static_cast<double>(points[n][i]) - box.low[i]) * cells;
        key |= spread(static_cast<std::uint64_t>(cell)) << static_cast<unsigned>(i);
      }
      places.push_back({key, static_cast<Index>(n)});
    }
  }
  std::sort(places.begin(), places.end());
  return places;
}

double spacingOf(std::vector<Place> const& places, std::vector<cv::Vec3f> const& points) {
  constexpr std::size_t sample = 4000;
  constexpr std::size_t reach = 48;
  std::vector<double> distances;
  std::size_t const step = std::max<std::size_t>(1, places.size() / sample);
  for (std::size_t n = 0; n < places.size(); n += step) {
    double nearest = std::numeric_limits<double>::max();
    std::size_t const last = std::min(places.size(), n + reach + 1);
    for (std::size_t k = n > reach ? n - reach : 0; k < last; ++k) {
      double const distance =
          cv::norm(cv::Vec3d(points[places[k].point]) - cv::Vec3d(points[places[n].point]));
      nearest = distance > 0.0 ? std::min(nearest, distance) : nearest;
    }
    if (nearest < std::numeric_limits<double>::max()) {
      distances.push_back(nearest);
    }
  }
  return medianAmong(distances);
}

Selection everySoMany(std::vector<Place> const& places, std::size_t most) {
  Selection selection;
  std::size_t const count = std::min(places.size(), most);
  selection.points.reserve(count);
  for (std::size_t n = 0; n < count; ++n) {
    selection.points.push_back(places[n * places.size() / count].point);
  }
  return selection;
}

Selection onePerCell(std::vector<Place> const& places, std::size_t most, std::size_t pointCount) {
  bool const isThinned = places.size() > most;
  unsigned shift = 0;
  while (isThinned && cellCount(places, shift) > most) {
    shift += 3;
  }
  Selection selection;
  selection.slots.assign(pointCount, 0);
  for (std::size_t n = 0; n < places.size();) {
    std::size_t end = n + 1;
    while (isThinned && end < places.size() && places[end].key >> shift == places[n].key >> shift) {
      ++end;
    }
    for (std::size_t k = n; k < end; ++k) {
      selection.slots[places[k].point] = static_cast<Index>(selection.points.size());
    }
    selection.points.push_back(places[n + (end - n) / 2].point);
    n = end;
  }
  return selection;
}

} // namespace vorn::tools
