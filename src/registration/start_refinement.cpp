// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/start_refinement.hpp"

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>

#include "registration/point_motion.hpp"
#include "registration/small_motion.hpp"
#include "registration/surface_registration.hpp"

namespace vorn::mv {

namespace {

/// Samples of either view that motions are refined and judged by.
constexpr double manySamples = 2000.0;
constexpr double fewSamples = 700.0;
constexpr double leastCosine = 0.8;
/// Steps of registration after a slide, which lay it onto the surface again.
constexpr int stepsAfterSlide = 3;
constexpr int mostRounds = 4;
constexpr int mostSlides = 12; ///< one after the other
/// Squared: motions that lift more than this share of their length out of the surface are held by it.
constexpr double heldWell = 0.03;
/// The share of points against a motion that lowers its score to a third: where it is exact, and where it is
/// off by the reach.
constexpr double mostAgainst = 0.005;
constexpr double mostAgainstAtReach = 0.1;

SourceSamples samplesOf(SearchedCloud const& searched, double count) {
  double const stride = std::sqrt(static_cast<double>(searched.surface.usableCount()) / count);
  return sampleEvenly(searched.cloud, std::max(1, static_cast<int>(std::lround(stride))));
}

} // namespace

StartRefinement::StartRefinement(SearchedCloud const& source, SearchedCloud const& target, double reach)
    : source_(source), target_(target),
      reach_(reach), few_{samplesOf(source, fewSamples), samplesOf(target, fewSamples)},
      all_{samplesOf(source, manySamples), samplesOf(target, manySamples)} {}

cv::Matx44d StartRefinement::laidIn(cv::Matx44d const& targetFromSource, SourceSamples const& samples,
                                    int steps, double reach, Laid* laid) const {
  RegistrationSettings settings;
  settings.targetFromSource = targetFromSource;
  settings.maxDistance = reach;
  settings.maxIterations = steps;
  settings.minOverlap = 0.0;
  SurfaceRegistration registration(target_.surface, settings, Progress());
  if (!registration.run(samples, true)) {
    return targetFromSource;
  }
  if (laid != nullptr) {
    laid->sigma = registration.result().sigma;
    laid->overlap = registration.result().overlap;
  }
  return registration.result().targetFromSource;
}

StartRefinement::Laid StartRefinement::laid(cv::Matx44d const& targetFromSource) const {
  Laid result;
  result.motion =
      laidIn(targetFromSource, all_.source, RegistrationSettings().maxIterations, reach_, &result);
  return result;
}

StartRefinement::Figures StartRefinement::figuresOf(SourceSamples const& samples, SearchedCloud const& other,
                                                    cv::Matx44d const& otherFromOwn, double tolerance) const {
  PairRule rule;
  rule.maxDistance = reach_;
  rule.leastCosine = leastCosine;
  std::vector<SurfacePair> pairs;
  findPairs(samples, other.surface, otherFromOwn, rule, pairs, Progress());
  SightedPoints const sighted{
      {}, other.seen.isSeen() ? &other.seen.sight() : nullptr, other.seen.viewpoint()};
  cv::Matx33d const rotation = otherFromOwn.get_minor<3, 3>(0, 0);
  AgreementFigures figures;
  double matches = 0.0;
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    double const off = pairs[i].residual / tolerance;
    if (pairs[i].isValid && std::abs(off) <= 1.0) {
      matches += 1.0;
      figures.matched += 1.0 - off * off;
    } else {
      tellBySight(moved(otherFromOwn, cv::Vec3d(samples.points[i])), rotation * cv::Vec3d(samples.normals[i]),
                  sighted, figures);
    }
  }
  double const share = 1.0 / static_cast<double>(std::max<std::size_t>(1, samples.size()));
  return {{figures.matched * share, figures.before * share, figures.missed * share}, matches * share};
}

StartCandidate StartRefinement::judged(cv::Matx44d const& targetFromSource, Samples const& samples,
                                       double tolerance, double off) const {
  Figures const figures = figuresOf(samples.source, target_, targetFromSource, tolerance);
  AgreementFigures const& one = figures.agreement;
  AgreementFigures const other =
      figuresOf(samples.target, source_, rigidInverse(targetFromSource), tolerance).agreement;
  AgreementFigures const both{0.5 * (one.matched + other.matched), 0.5 * (one.before + other.before),
                              0.5 * (one.missed + other.missed)};
  double const against = std::max(mostAgainst, mostAgainstAtReach * off / reach_);
  return {targetFromSource, both.score(against), figures.overlap};
}

/// One round of slides of a length.
/// @return whether any was better
bool StartRefinement::climb(StartCandidate& best, Samples const& samples, double tolerance,
                            double length) const {
  PairRule rule;
  rule.maxDistance = reach_;
  rule.leastCosine = leastCosine;
  std::vector<SurfacePair> pairs;
  findPairs(samples.source, target_.surface, best.motion, rule, pairs, Progress());
  PairEquations const equations = sumEquations(samples.source, pairs, tolerance);
  if (!(equations.weights > 0.0)) {
    return false;
  }
  cv::Vec6d values;
  cv::Matx66d ways; // one a row, largest value first
  cv::eigen(equations.normal * (1.0 / equations.weights), values, ways);
  bool isBetter = false;
  for (int i = 5; i >= 0 && values(i) < heldWell; --i) {
    for (double const side : {length, -length}) {
      cv::Vec6d const way = cv::Vec6d(ways.row(i).t().val) * side;
      int slides = 0;
      for (; slides < mostSlides; ++slides) {
        cv::Matx44d const motion =
            movedBySmall(best.motion, way, target_.surface.middle(), target_.surface.size());
        StartCandidate const next = judged(laidIn(motion, samples.source, stepsAfterSlide, reach_, nullptr),
                                           samples, tolerance, length);
        if (!(next.score > best.score)) {
          break;
        }
        best = next;
      }
      if (slides > 0) {
        isBetter = true;
        break;
      }
    }
  }
  return isBetter;
}

StartCandidate StartRefinement::climbed(cv::Matx44d const& targetFromSource, Samples const& samples,
                                        double tolerance, double length) const {
  StartCandidate best = judged(targetFromSource, samples, tolerance, length);
  for (int round = 0; round < mostRounds && climb(best, samples, tolerance, length); ++round) {
  }
  return best;
}

} // namespace vorn::mv
