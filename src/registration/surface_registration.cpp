// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/surface_registration.hpp"

#include <algorithm>
#include <cmath>

#include "core/median.hpp"
#include "registration/held_motions.hpp"
#include "registration/small_motion.hpp"

namespace vorn::mv {

namespace {

/// From a median of absolute values to a standard deviation, for normally distributed ones.
constexpr double sigmaOverMedian = 1.4826;
/// The biweight's usual reach: 95 % of the efficiency of least squares on normally distributed residuals.
constexpr double cutoffOverSigma = 4.685;
constexpr double gateOverMedian = 3.0;
/// Fewer pairs say nothing of how residuals scatter.
constexpr std::size_t fewestPairs = 50;
/// Steps smaller than this share of the result's standard deviation change nothing that matters; on samples
/// that only lead towards the result more is enough.
constexpr double smallStep = 0.1;
constexpr double smallLeadingStep = 0.5;
constexpr int mostLeadingSteps = 30;

/// Medians are of at most about so many pairs, spread over all: that is exact to a percent.
constexpr std::size_t medianPairs = 40000;

template <class Value>
double medianOfPairs(std::vector<SurfacePair> const& pairs, Value const& value) {
  std::vector<double> values;
  // Odd, so that it takes all columns of a patch in turn.
  std::size_t const stride = std::max<std::size_t>(1, pairs.size() / medianPairs) | 1U;
  for (std::size_t i = 0; i < pairs.size(); i += stride) {
    if (pairs[i].isValid) {
      values.push_back(value(pairs[i]));
    }
  }
  return medianAmong(values);
}

} // namespace

PointCloud withNormals(PointCloud const& cloud, Progress const& progress) {
  PointCloud copy = cloud;
  if (!copy.hasNormals()) {
    progress.at("normals", 0.0);
    NormalSettings settings;
    settings.orientation =
        cloud.isOrganized() ? NormalOrientation::TowardsViewpoint : NormalOrientation::Consistent;
    copy.calcNormals(settings);
  }
  return copy;
}

SurfaceRegistration::SurfaceRegistration(SurfaceMatcher const& target, RegistrationSettings const& settings,
                                         Progress const& progress)
    : target_(target), settings_(settings), progress_(progress) {
  result_.targetFromSource = settings.targetFromSource;
  result_.pivot = target.middle();
  rule_.leastCosine = std::cos(settings.maxNormalAngle * CV_PI / 180.0);
  // Far beyond both clouds, whatever their unit.
  constexpr double anywhere = 1e3;
  rule_.maxDistance = settings.maxDistance > 0.0 ? settings.maxDistance : anywhere * target.size();
}

bool SurfaceRegistration::findValidPairs(SourceSamples const& samples) {
  findPairs(samples, target_, result_.targetFromSource, rule_, pairs_, progress_);
  if (!isSideKnown_) {
    auto const opposed = std::count_if(pairs_.begin(), pairs_.end(), [](SurfacePair const& pair) {
      return pair.cell != SurfaceMatcher::none && pair.isOpposed;
    });
    auto const all = std::count_if(pairs_.begin(), pairs_.end(),
                                   [](SurfacePair const& pair) { return pair.cell != SurfaceMatcher::none; });
    isSideKnown_ = true;
    if (2 * opposed > all) {
      rule_.areOpposed = true;
      findPairs(samples, target_, result_.targetFromSource, rule_, pairs_, progress_);
    }
  }
  auto const valid = static_cast<std::size_t>(
      std::count_if(pairs_.begin(), pairs_.end(), [](SurfacePair const& pair) { return pair.isValid; }));
  auto const total = static_cast<double>(samples.size());
  return valid >= fewestPairs && static_cast<double>(valid) >= settings_.minOverlap * total;
}

bool SurfaceRegistration::step(SourceSamples const& samples, double& stepOverUncertainty) {
  if (!findValidPairs(samples)) {
    return false;
  }
  result_.sigma = sigmaOverMedian *
                  medianOfPairs(pairs_, [](SurfacePair const& pair) { return std::abs(pair.residual); });
  cutoff_ = cutoffOverSigma * result_.sigma;
  equations_ = sumEquations(samples, pairs_, cutoff_);
  if (settings_.maxDistance <= 0.0) {
    double const median = medianOfPairs(pairs_, [](SurfacePair const& pair) { return pair.distance; });
    rule_.maxDistance = gateOverMedian * median + target_.spacing();
  }
  HeldMotions const motions = heldMotionsOf(equations_);
  cv::Vec6d const motion = solveWithin(motions, equations_);
  // Places change from cell to cell with every step, so steps never quite end: what counts is their size in
  // standard deviations of the result, in the directions that are held loosely too.
  double const variance =
      equations_.squares / equations_.weights + target_.resolution() * target_.resolution();
  stepOverUncertainty = std::sqrt(std::max(0.0, motion.dot(equations_.normal * motion)) / (6.0 * variance));
  result_.targetFromSource = movedBySmall(result_.targetFromSource, motion, target_.middle(), target_.size());
  return true;
}

void SurfaceRegistration::report(SourceSamples const& samples) {
  HeldMotions const motions = heldMotionsOf(equations_);
  double const size = target_.size();
  cv::Matx66d const scaled = covarianceOf(motions, equations_);
  cv::Matx66d const free = projectionOnto(motions.free);
  for (int i = 0; i < 6; ++i) {
    for (int j = 0; j < 6; ++j) {
      // Held motions are lengths, as are translations; free ones are a turn by 1 and a shift by the size.
      double const value = scaled(i, j) - free(i, j) + free(i, j) * size * size;
      result_.covariance(i, j) = value / ((i < 3 ? size : 1.0) * (j < 3 ? size : 1.0));
    }
  }
  result_.freeMotions = freeMotionsOf(motions, target_.middle(), size);
  result_.rms = std::sqrt(equations_.squares / equations_.weights);
  result_.matches = equations_.count;
  result_.overlap = static_cast<double>(equations_.count) / static_cast<double>(samples.size());
}

bool SurfaceRegistration::run(SourceSamples const& samples, bool isLast) {
  pairs_.clear();
  int const most = isLast ? settings_.maxIterations : std::min(mostLeadingSteps, settings_.maxIterations);
  result_.stop = RegistrationStop::IterationLimit;
  for (int i = 0; i < most; ++i) {
    double stepOverUncertainty = 0.0;
    if (!step(samples, stepOverUncertainty)) {
      result_.stop = RegistrationStop::NoOverlap;
      result_.targetFromSource = settings_.targetFromSource;
      return false;
    }
    ++result_.iterations;
    if (stepOverUncertainty < (isLast ? smallStep : smallLeadingStep)) {
      result_.stop = RegistrationStop::Converged;
      break;
    }
  }
  if (isLast) {
    report(samples);
  }
  return true;
}

} // namespace vorn::mv
