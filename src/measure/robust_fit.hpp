// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

#include <vorn/mv/measure/fit.hpp>

#include "core/error.hpp"
#include "core/median.hpp"
#include "measure/chance_support.hpp"
#include "measure/feature_search.hpp"
#include "measure/shape.hpp"

namespace vorn::mv {

/// A shape and the points that it was fitted to.
template <class Shape>
struct Agreement {
  Shape shape;
  Indices inliers;
};

/// The order statistic of least median of squares: beyond half, by half of the points that any shape meets.
template <class Shape>
double typicalDistance(Shape const& shape, Points const& points, Indices const& among,
                       std::vector<double>& distances) {
  distances.clear();
  for (std::size_t const i : among) {
    distances.push_back(std::abs(shape.residual(points[i])));
  }
  return rankedAmong(distances, std::min(among.size() - 1, (among.size() + Shape::unknowns) / 2));
}

/// How far from the shape an inlier may be.
template <class Shape>
double outlierBound(Shape const& shape, Points const& points, Indices const& among,
                    FitSettings const& settings) {
  std::size_t const fewestToJudge = 2 * Shape::unknowns + 2;
  if (settings.outlierDistance > 0.0) {
    return settings.outlierDistance;
  }
  if (std::isinf(settings.outlierSigmas) || among.size() < fewestToJudge) {
    return std::numeric_limits<double>::infinity();
  }
  // The median of a normal distribution's sizes, and its shortfall in small samples (Rousseeuw and Leroy
  // 1987).
  constexpr double sigmasPerMedian = 1.4826;
  constexpr double shortfall = 5.0;
  std::vector<double> distances;
  double const sigma = sigmasPerMedian *
                       (1.0 + shortfall / static_cast<double>(among.size() - Shape::unknowns)) *
                       typicalDistance(shape, points, among, distances);
  // Half of the points may fit to the last bit, and the others be no worse than their rounding.
  return settings.outlierSigmas * std::max(sigma, roundingOf(points, among));
}

/// The best of the shape through all points and of many through a few.
template <class Shape>
Shape bestStart(Shape const& all, Points const& points, Indices const& used, std::mt19937& random) {
  constexpr std::size_t mostJudges = 1000;
  // Half of the points are good: the chance that no draw has four of them is 2e-6.
  constexpr int draws = 200;
  Indices const judges = sampleOf(used, mostJudges, random);
  std::vector<double> distances;
  Shape best = all;
  double least = typicalDistance(all, points, judges, distances);
  Indices drawn(Shape::unknowns);
  for (int i = 0; i < draws; ++i) {
    std::generate(drawn.begin(), drawn.end(), [&] { return used[random() % used.size()]; });
    auto const candidate = Shape::start(points, drawn);
    if (!candidate) {
      continue;
    }
    double const its = typicalDistance(*candidate, points, judges, distances);
    if (its < least) {
      least = its;
      best = *candidate;
    }
  }
  return best;
}

/// Sorts out outliers and refines in turn until the inliers stay the same.
template <class Shape>
Agreement<Shape> settled(Shape shape, Points const& points, Indices const& used,
                         FitSettings const& settings) {
  constexpr int mostRounds = 20;
  Agreement<Shape> agreement{shape, {}};
  for (int round = 0; round < mostRounds; ++round) {
    // Once outliers are known, the others tell the standard deviation without them.
    Indices const& judges = round == 0 ? used : agreement.inliers;
    double const bound = outlierBound(agreement.shape, points, judges, settings);
    Indices inliers;
    std::copy_if(used.begin(), used.end(), std::back_inserter(inliers),
                 [&](std::size_t i) { return std::abs(agreement.shape.residual(points[i])) <= bound; });
    if (inliers.size() < Shape::unknowns) {
      throw error("Only " + std::to_string(inliers.size()) + " of " + std::to_string(used.size()) +
                      " points agree on a " + Shape::name + ", which takes " +
                      std::to_string(Shape::unknowns) + " or more",
                  Shape::function);
    }
    if (inliers == agreement.inliers) {
      break;
    }
    agreement.shape = Shape::refined(agreement.shape, points, inliers);
    agreement.inliers = std::move(inliers);
  }
  return agreement;
}

/// With every point known to be tried in the end, most of the way to a settled shape is made with few.
template <class Shape>
Agreement<Shape> settledFrom(Shape start, Points const& points, Indices const& used,
                             FitSettings const& settings, std::mt19937& random) {
  constexpr std::size_t enoughToApproach = 20000;
  if (used.size() > 2 * enoughToApproach) {
    start = settled(start, points, sampleOf(used, enoughToApproach, random), settings).shape;
  }
  return settled(start, points, used, settings);
}

/// The shape that most of the points are within the distance of, if it is no work of chance.
/// @throws Exception as `fitSphere`
template <class Shape>
Agreement<Shape> boundedFit(Points const& points, Indices const& used, FitSettings const& settings) {
  double const bound = settings.outlierDistance;
  std::mt19937 random(1);
  std::string found;
  // A sphere that is wide enough is near every point of a plane: such come second.
  for (bool const mayBeFlat : {false, true}) {
    auto const start = FeatureSearch<Shape>(points, used, bound, mayBeFlat).best();
    if (!start) {
      continue;
    }
    Agreement<Shape> agreement = settledFrom(*start, points, used, settings, random);
    std::size_t const inliers = agreement.inliers.size();
    if (2 * inliers >= used.size() ||
        isBeyondChance(inliers, used.size(), Shape::unknowns,
                       shareNear(agreement.shape, boxOf(points, used, 2.0 * bound), bound))) {
      return agreement;
    }
    found = std::to_string(inliers) + " of " + std::to_string(used.size()) +
            " points lie within the outlierDistance of " + std::to_string(bound) + " from the best " +
            Shape::name + " found, no more than of scattered points by chance";
  }
  throw error(found.empty() ? "No points that lie within the outlierDistance of " + std::to_string(bound) +
                                  " from a " + Shape::name + " determine one"
                            : found,
              Shape::function);
}

/// The shape of least squares through the inliers among the points.
/// @throws Exception as `fitSphere`
template <class Shape>
Agreement<Shape> robustFit(Points const& points, Indices const& used, FitSettings const& settings) {
  auto const all = Shape::start(points, used);
  if (!all) {
    std::string const why = Shape().weakness(points, used, 0.0);
    throw error("The " + std::to_string(used.size()) + " points " + (why.empty() ? "lie in one plane" : why) +
                    ": they determine no " + Shape::name,
                Shape::function);
  }
  if (settings.outlierDistance > 0.0 && std::isfinite(settings.outlierDistance)) {
    return boundedFit<Shape>(points, used, settings);
  }
  // With every point or none to tell apart, the start is the whole.
  if (!std::isfinite(outlierBound(*all, points, used, settings))) {
    return settled(*all, points, used, settings);
  }
  std::mt19937 random(1);
  return settledFrom(bestStart(*all, points, used, random), points, used, settings, random);
}

} // namespace vorn::mv
