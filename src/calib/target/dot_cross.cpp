// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <limits>

#include "calib/target/dot_grid.hpp"
#include "calib/target/point_buckets.hpp"
#include "core/median.hpp"
#include "core/pieces.hpp"

namespace vorn::mv {
namespace {

/// In a view from any side, a dot's own outline tells the local scale: divided by it, the dot is a unit
/// circle and its nearest neighbours lie 2 pitches over its diameter away: from 2.5 for dots of 0.8 of the
/// pitch to 10 for dots of 0.2, and two thirds of it for a marker.
constexpr double maxNeighbourDistance = 11.0;
constexpr double minNeighbourDistance = 1.8;

/// Neighbours looked at; a regular dot has 8 nearer than the next ring.
constexpr std::size_t maxNeighbours = 16;

/// How far opposite neighbours may be from symmetric about the dot, relative to their distance: perspective
/// moves both the same way.
constexpr double maxAsymmetry = 0.25;

/// Bounds for the two directions of a cross, in the dot's own scale.
constexpr double maxCosine = 0.5;
constexpr double maxLengthRatio = 1.6;

struct Neighbour {
  int candidate;
  cv::Vec2d offset; ///< from the dot, in the dot's own scale
  double distance;
};

struct OppositePair {
  int a;
  int b;
  cv::Vec2d direction; ///< half the way from b to a
  double length;
};

std::vector<Neighbour> nearestNeighbours(std::vector<DotCandidate> const& candidates, std::size_t self,
                                         PointBuckets const& buckets, double areaMultiplier) {
  DotCandidate const& dot = candidates[self];
  double const farthest =
      maxNeighbourDistance * std::max(cv::norm(dot.outline.row(0)), cv::norm(dot.outline.row(1)));
  std::vector<Neighbour> neighbours;
  buckets.visitNear(dot.centre, farthest, [&](int other) {
    DotCandidate const& candidate = candidates[static_cast<std::size_t>(other)];
    cv::Point2d const step = candidate.centre - dot.centre;
    cv::Vec2d const offset = dot.whitening * cv::Vec2d(step.x, step.y);
    double const distance = cv::norm(offset);
    double const areaRatio = candidate.area / dot.area;
    if (distance >= minNeighbourDistance && distance <= maxNeighbourDistance && areaRatio <= areaMultiplier &&
        areaRatio * areaMultiplier >= 1.0) {
      neighbours.push_back({other, offset, distance});
    }
  });
  std::sort(neighbours.begin(), neighbours.end(), [](Neighbour const& a, Neighbour const& b) {
    return a.distance != b.distance ? a.distance < b.distance : a.candidate < b.candidate;
  });
  neighbours.resize(std::min(neighbours.size(), maxNeighbours));
  return neighbours;
}

/// Pairs of neighbours on opposite sides, shortest first.
std::vector<OppositePair> oppositePairs(std::vector<Neighbour> const& neighbours) {
  std::vector<OppositePair> pairs;
  for (std::size_t i = 0; i < neighbours.size(); ++i) {
    for (std::size_t j = i + 1; j < neighbours.size(); ++j) {
      double const length = 0.5 * (neighbours[i].distance + neighbours[j].distance);
      if (cv::norm(neighbours[i].offset + neighbours[j].offset) <= maxAsymmetry * length) {
        pairs.push_back({neighbours[i].candidate, neighbours[j].candidate,
                         0.5 * (neighbours[i].offset - neighbours[j].offset), length});
      }
    }
  }
  std::stable_sort(pairs.begin(), pairs.end(),
                   [](OppositePair const& a, OppositePair const& b) { return a.length < b.length; });
  return pairs;
}

std::optional<GridCross> crossOf(std::vector<DotCandidate> const& candidates,
                                 std::vector<OppositePair> const& pairs) {
  auto const step = [&](OppositePair const& pair) {
    return 0.5 * (candidates[static_cast<std::size_t>(pair.a)].centre -
                  candidates[static_cast<std::size_t>(pair.b)].centre);
  };
  for (std::size_t i = 1; i < pairs.size(); ++i) {
    OppositePair const& first = pairs.front();
    OppositePair const& second = pairs[i];
    double const cosine = std::abs(first.direction.dot(second.direction)) / (first.length * second.length);
    if (cosine <= maxCosine && second.length <= maxLengthRatio * first.length) {
      return GridCross{step(first), step(second), {first.a, first.b, second.a, second.b}};
    }
  }
  return std::nullopt;
}

} // namespace

std::vector<std::optional<GridCross>> findCrosses(std::vector<DotCandidate> const& candidates,
                                                  double areaMultiplier, Progress const& progress) {
  std::vector<cv::Point2d> centres;
  std::vector<double> areas;
  for (DotCandidate const& candidate : candidates) {
    centres.push_back(candidate.centre);
    areas.push_back(candidate.area);
  }
  std::vector<std::optional<GridCross>> crosses(candidates.size());
  if (candidates.empty()) {
    return crosses;
  }
  PointBuckets const buckets(centres, 2.0 * std::sqrt(medianAmong(areas)));
  constexpr std::size_t candidatesAtOnce = 512;
  inPieces(candidates.size(), candidatesAtOnce, progress, "detecting targets",
           [&](std::size_t first, std::size_t end) {
             for (std::size_t i = first; i < end; ++i) {
               crosses[i] = crossOf(candidates,
                                    oppositePairs(nearestNeighbours(candidates, i, buckets, areaMultiplier)));
             }
           });
  return crosses;
}

} // namespace vorn::mv
