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
#include "measure/shape.hpp"

namespace vorn::mv {

/// A shape and the points that it was fitted to.
template <class Shape>
struct Agreement {
  Shape shape;
  Indices inliers;
};

/// As many of the points as are enough to start from, spread over the list, by drawing one of each run.
inline Indices sampleOf(Indices const& all, std::size_t most, std::mt19937& random) {
  if (all.size() <= most) {
    return all;
  }
  Indices sample(most);
  for (std::size_t i = 0; i < most; ++i) {
    std::size_t const first = i * all.size() / most;
    std::size_t const end = (i + 1) * all.size() / most;
    sample[i] = all[first + random() % (end - first)];
  }
  return sample;
}

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

/// What the best shape has the least of: the typical distance, or, with a given bound, the squares cut there.
template <class Shape>
double cost(Shape const& shape, Points const& points, Indices const& among, FitSettings const& settings,
            std::vector<double>& distances) {
  if (settings.outlierDistance <= 0.0) {
    return typicalDistance(shape, points, among, distances);
  }
  double const bound = settings.outlierDistance * settings.outlierDistance;
  double sum = 0.0;
  for (std::size_t const i : among) {
    double const residual = shape.residual(points[i]);
    sum += std::min(residual * residual, bound);
  }
  return sum;
}

/// The best of the shape through all points and of many through a few.
template <class Shape>
Shape bestStart(Shape const& all, Points const& points, Indices const& used, FitSettings const& settings,
                std::mt19937& random) {
  constexpr std::size_t mostJudges = 1000;
  // Half of the points are good: the chance that no draw has four of them is 2e-6. A third: 4e-6.
  int const draws = settings.outlierDistance > 0.0 ? 1000 : 200;
  Indices const judges = sampleOf(used, mostJudges, random);
  std::vector<double> distances;
  Shape best = all;
  double least = cost(all, points, judges, settings, distances);
  Indices drawn(Shape::unknowns);
  for (int i = 0; i < draws; ++i) {
    std::generate(drawn.begin(), drawn.end(), [&] { return used[random() % used.size()]; });
    auto const candidate = Shape::start(points, drawn);
    if (!candidate) {
      continue;
    }
    double const its = cost(*candidate, points, judges, settings, distances);
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
  // With every point or none to tell apart, the start is the whole; else most of the way is made with few.
  constexpr std::size_t enoughToApproach = 20000;
  std::mt19937 random(1);
  Shape start = *all;
  if (std::isfinite(outlierBound(start, points, used, settings))) {
    start = bestStart(start, points, used, settings, random);
    if (used.size() > 2 * enoughToApproach) {
      start = settled(start, points, sampleOf(used, enoughToApproach, random), settings).shape;
    }
  }
  return settled(start, points, used, settings);
}

} // namespace vorn::mv
