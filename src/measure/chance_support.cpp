// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "measure/chance_support.hpp"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "core/median.hpp"

namespace vorn::mv {

namespace {

constexpr int lines = 16384;

/// The mean share of lines along x through the box that a shape takes; the lines' places are those of the
/// sequence of least discrepancy by the plastic number (Roberts 2018).
template <class LengthOn>
double shareOfLines(FilledBox const& box, LengthOn const& lengthOn) {
  constexpr double plastic = 1.32471795724474602596;
  double sum = 0.0;
  for (int i = 0; i < lines; ++i) {
    double whole = 0.0;
    double const u = std::modf(0.5 + (i + 1) / plastic, &whole);
    double const v = std::modf(0.5 + (i + 1) / (plastic * plastic), &whole);
    sum += lengthOn(box.low[1] + u * box.size[1], box.low[2] + v * box.size[2]);
  }
  return sum / (lines * box.size[0]);
}

double overlap(double from, double to, FilledBox const& box) {
  return std::max(0.0, std::min(to, box.low[0] + box.size[0]) - std::max(from, box.low[0]));
}

} // namespace

FilledBox boxOf(Points const& points, Indices const& used, double thinnest) {
  constexpr double tail = 0.02; // of the points, left out at either end
  FilledBox box;
  std::vector<double> values(used.size());
  for (int axis = 0; axis < 3; ++axis) {
    std::transform(used.begin(), used.end(), values.begin(),
                   [&](std::size_t i) { return static_cast<double>(cv::Vec3f(points[i])[axis]); });
    auto const last = static_cast<double>(values.size() - 1);
    double const from = rankedAmong(values, static_cast<std::size_t>(tail * last));
    double const to = rankedAmong(values, static_cast<std::size_t>((1.0 - tail) * last));
    box.size[axis] = std::max((to - from) / (1.0 - 2.0 * tail), thinnest);
    box.low[axis] = (from + to - box.size[axis]) / 2.0;
  }
  return box;
}

double shareNear(PlaneShape const& plane, FilledBox const& box, double bound) {
  // The lines go across the plane rather than along it.
  auto const steepest = std::max_element(plane.normal.val, plane.normal.val + 3,
                                         [](double a, double b) { return std::abs(a) < std::abs(b); });
  auto const axis = static_cast<int>(steepest - plane.normal.val);
  auto const turned = [&](cv::Vec3d v) {
    std::swap(v[0], v[axis]);
    return v;
  };
  FilledBox const along{turned(box.low), turned(box.size)};
  cv::Vec3d const n = turned(plane.normal);
  double const height = plane.normal.dot(plane.point);
  return shareOfLines(along, [&](double y, double z) {
    double const middle = (height - n[1] * y - n[2] * z) / n[0];
    double const half = bound / std::abs(n[0]);
    return overlap(middle - half, middle + half, along);
  });
}

double shareNear(SphereShape const& sphere, FilledBox const& box, double bound) {
  double const outer = sphere.radius + bound;
  double const inner = std::max(0.0, sphere.radius - bound);
  double const found = shareOfLines(box, [&](double y, double z) {
    double const off = std::pow(y - sphere.centre[1], 2) + std::pow(z - sphere.centre[2], 2);
    auto const within = [&](double radius) {
      double const half = std::sqrt(std::max(0.0, radius * radius - off));
      return overlap(sphere.centre[0] - half, sphere.centre[0] + half, box);
    };
    return within(outer) - within(inner);
  });
  // Lines miss a ball much smaller than the box, whose whole shell is a good bound.
  double const shell = 4.0 / 3.0 * CV_PI * (std::pow(outer, 3) - std::pow(inner, 3));
  return std::min(shell / (box.size[0] * box.size[1] * box.size[2]), found + 1.0 / lines);
}

bool isBeyondChance(std::size_t supporting, std::size_t all, std::size_t unknowns, double share) {
  if (supporting <= unknowns || share >= 1.0) {
    return false;
  }
  // The shape goes through as many points as it has unknowns; the others may lie near it by chance.
  auto const others = static_cast<double>(all - unknowns);
  double const seen = static_cast<double>(supporting - unknowns) / others;
  if (seen <= share) {
    return false;
  }
  double divergence = seen * std::log(seen / share);
  if (seen < 1.0) {
    divergence += (1.0 - seen) * std::log((1.0 - seen) / (1.0 - share));
  }
  auto const n = static_cast<double>(all);
  auto const k = static_cast<double>(unknowns);
  double const shapes = std::lgamma(n + 1.0) - std::lgamma(k + 1.0) - std::lgamma(n - k + 1.0);
  return others * divergence > shapes;
}

} // namespace vorn::mv
