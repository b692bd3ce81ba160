// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/surface_registration.hpp"

#include <algorithm>
#include <cmath>
#include <vorn/mv/pointcloud/measured_count.hpp>

#include "core/median.hpp"
#include "registration/held_motions.hpp"
#include "registration/robust_pairs.hpp"
#include "registration/small_motion.hpp"

namespace vorn::mv {

namespace {

/// Fewer pairs say nothing of how residuals scatter.
constexpr std::size_t fewestPairs = 50;
/// Steps smaller than this share of the result's standard deviation change nothing that matters; on samples
/// that only lead towards the result more is enough.
constexpr double smallStep = 0.1;
constexpr double smallLeadingStep = 0.5;
constexpr int mostLeadingSteps = 30;
/// Sides of windows of normals over the side of what a grid shows: larger ones give one normal to most of it,
/// and at its rims those of places inwards, as if every shape were a plane or held in ways that it is not.
constexpr int windowsEach = 7;
/// Noise of normals in rad that windows are to reach even so.
constexpr double mostNormalNoise = 0.05;
/// The share of the last step below which a step tells how the next ones shrink.
constexpr double mostShrunk = 0.5;

/// The noise of a grid's points over their distance, by second differences along its rows.
double noiseOverSpacing(PointCloud const& grid) {
  cv::Mat_<cv::Vec3f> const& points = grid.points();
  std::vector<double> bends;
  std::vector<double> steps;
  for (int row = 0; row < points.rows; ++row) {
    for (int column = 1; column + 1 < points.cols; ++column) {
      cv::Vec3d const before(points(row, column - 1));
      cv::Vec3d const at(points(row, column));
      cv::Vec3d const after(points(row, column + 1));
      double const bend = cv::norm(before - 2.0 * at + after);
      if (std::isfinite(bend)) {
        bends.push_back(bend);
        steps.push_back(cv::norm(after - before) * 0.5);
      }
    }
  }
  return bends.empty() ? 0.0 : medianAmong(bends) / (std::sqrt(6.0) * medianAmong(steps));
}

/// The radius of windows that are small beside what a grid shows, if its noise allows.
int windowRadiusFor(PointCloud const& grid, int most) {
  cv::Size const size = grid.points().size();
  auto const shown = static_cast<int>(std::sqrt(static_cast<double>(measuredCount(grid))));
  int radius = std::max(1, std::min({size.width, size.height, shown}) / windowsEach);
  if (radius >= most) {
    return most;
  }
  double const noise = noiseOverSpacing(grid);
  auto const noiseWith = [&](int side) { // of a least-squares slope over side x side points
    return noise / (side * std::sqrt((side * side - 1.0) / 12.0));
  };
  while (radius < most && noiseWith(2 * radius + 1) > mostNormalNoise) {
    ++radius;
  }
  return radius;
}

} // namespace

PointCloud withNormals(PointCloud const& cloud, Progress const& progress) {
  PointCloud copy = cloud;
  if (!copy.hasNormals()) {
    progress.at("normals", 0.0);
    NormalSettings settings;
    settings.orientation =
        cloud.isOrganized() ? NormalOrientation::TowardsViewpoint : NormalOrientation::Consistent;
    if (cloud.isOrganized() && cloud.isContinous()) {
      settings.windowRadius = windowRadiusFor(cloud, settings.windowRadius);
    }
    if (cloud.offset() != cv::Vec3d()) {
      settings.viewpoint =
          cv::Vec3f(-cloud.offset()); // the sensor is at the file's origin, not at the points'
    }
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
  result_.sigma = sigmaOfPairs(pairs_);
  cutoff_ = cutoffOverSigma * result_.sigma;
  equations_ = sumEquations(samples, pairs_, cutoff_);
  if (settings_.maxDistance <= 0.0) {
    double const median =
        medianOf(valuesOfPairs(pairs_, [](SurfacePair const& pair) { return pair.distance; }));
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
  cv::Matx66d const scaled = covarianceOf(motions, equations_, size);
  for (int i = 0; i < 6; ++i) {
    for (int j = 0; j < 6; ++j) {
      // Held motions are lengths, as are translations; free ones are a turn by 1 and a shift by the size.
      result_.covariance(i, j) = scaled(i, j) / ((i < 3 ? size : 1.0) * (j < 3 ? size : 1.0));
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
  double lastStep = 0.0;
  for (int i = 0; i < most; ++i) {
    double stepOverUncertainty = 0.0;
    if (!step(samples, stepOverUncertainty)) {
      result_.stop = RegistrationStop::NoOverlap;
      result_.targetFromSource = settings_.targetFromSource;
      return false;
    }
    ++result_.iterations;
    // Steps shrink by a constant share: where the next one would be small, it need not be taken.
    bool const isShrinking = stepOverUncertainty < mostShrunk * lastStep;
    double const next =
        isShrinking ? stepOverUncertainty * stepOverUncertainty / lastStep : stepOverUncertainty;
    if (next < (isLast ? smallStep : smallLeadingStep)) {
      result_.stop = RegistrationStop::Converged;
      break;
    }
    lastStep = stepOverUncertainty;
  }
  if (isLast) {
    report(samples);
  }
  return true;
}

} // namespace vorn::mv
