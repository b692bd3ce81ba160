// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/trimmed_icp.hpp"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "core/error.hpp"
#include "pointcloud/point_access.hpp"
#include "registration/held_motions.hpp"
#include "registration/pair_equations.hpp"
#include "registration/registration_checks.hpp"
#include "registration/small_motion.hpp"

namespace vorn::mv {

namespace {

/// Leaves the pairs with the largest residuals out and says how many stay.
std::size_t trim(std::vector<SurfacePair>& pairs, TrimmedIcp const& settings) {
  std::vector<double> residuals;
  for (SurfacePair const& pair : pairs) {
    if (pair.isValid) {
      residuals.push_back(std::abs(pair.residual));
    }
  }
  if (residuals.empty()) {
    return 0;
  }
  std::sort(residuals.begin(), residuals.end());
  auto const total = static_cast<double>(pairs.size());
  constexpr double sigmas = 3.0 * 1.4826;
  double const limit = sigmas * residuals[residuals.size() / 2];
  auto const far =
      static_cast<double>(residuals.end() - std::upper_bound(residuals.begin(), residuals.end(), limit));
  double const cut =
      std::max(settings.lowCut,
               std::min(settings.highCut, (total - static_cast<double>(residuals.size()) + far) / total));
  auto const kept = std::min(residuals.size(), static_cast<std::size_t>(std::ceil(total * (1.0 - cut))));
  double const largest = residuals[std::max<std::size_t>(kept, 1) - 1];
  std::size_t count = 0;
  for (SurfacePair& pair : pairs) {
    pair.isValid = pair.isValid && std::abs(pair.residual) <= largest;
    count += pair.isValid ? 1 : 0;
  }
  return count;
}

bool isGood(PointCloud const& cloud, int row, int column) {
  if (cloud.state()(row, column) != 0 || !isFinite(cloud.points()(row, column).val)) {
    return false;
  }
  if (cloud.hasNormals() && cloud.normals()(row, column) == cv::Vec3f()) {
    return false;
  }
  return cloud.auxMask().size() != cloud.points().size() ||
         cloud.auxMask()(row, column) == static_cast<uchar>(PointKind::Inner);
}

/// The good cells nearest to the middles of square blocks of the grid.
std::vector<unsigned> gridSamples(PointCloud const& cloud, int stride) {
  std::vector<unsigned> samples;
  cv::Size const size = cloud.points().size();
  for (int row = 0; row < size.height; row += stride) {
    for (int column = 0; column < size.width; column += stride) {
      int best = stride * stride;
      unsigned chosen = 0;
      for (int r = row; r < std::min(row + stride, size.height); ++r) {
        for (int c = column; c < std::min(column + stride, size.width); ++c) {
          int const away = std::max(std::abs(r - row - stride / 2), std::abs(c - column - stride / 2));
          if (away < best && isGood(cloud, r, c)) {
            best = away;
            chosen = static_cast<unsigned>(r * size.width + c);
          }
        }
      }
      if (best < stride * stride || (stride == 1 && isGood(cloud, row, column))) {
        samples.push_back(stride == 1 ? static_cast<unsigned>(row * size.width + column) : chosen);
      }
    }
  }
  return samples;
}

std::vector<unsigned> chainSamples(PointCloud& cloud) {
  std::vector<unsigned> samples;
  int const columns = std::as_const(cloud).points().cols;
  for (unsigned const index : cloud.octree().chain()) {
    if (isGood(cloud, static_cast<int>(index) / columns, static_cast<int>(index) % columns)) {
      samples.push_back(index);
    }
  }
  return samples;
}

} // namespace

TrimmedAlignment alignTrimmed(PointCloud const& source, PointCloud const& target,
                              std::vector<unsigned> const& samples, TrimmedIcp const& settings,
                              char const* caller) {
  SurfaceMatcher const matcher(target);
  SourceSamples const chosen = samplesAt(source, samples);
  cv::Matx44d const before = target.getTransform();
  TrimmedAlignment result;
  result.targetFromSource = before.inv() * source.getTransform();
  checkStart(result.targetFromSource, "The source's pending transform against the target's", caller);
  PairRule rule;
  rule.maxDistance = settings.maxDistance;
  rule.leastCosine = std::cos(settings.maxNormalAngle * CV_PI / 180.0);
  std::vector<SurfacePair> pairs;
  double last = -1.0;
  for (int i = 0; i < settings.maxIterations; ++i) {
    findPairs(chosen, matcher, result.targetFromSource, rule, pairs, Progress());
    std::size_t const count = trim(pairs, settings);
    if (count < settings.minSamples) {
      throw error(std::to_string(count) + " of " + std::to_string(samples.size()) +
                      " samples have a place on the target, fewer than " +
                      std::to_string(settings.minSamples),
                  caller);
    }
    PairEquations const equations = sumEquations(chosen, pairs, 0.0);
    result.rms = std::sqrt(equations.squares / equations.weights);
    if (last >= 0.0 && std::abs(last - result.rms) < settings.minError) {
      break;
    }
    last = result.rms;
    cv::Vec6d const motion = solveWithin(heldMotionsOf(equations), equations);
    result.targetFromSource = movedBySmall(result.targetFromSource, motion, matcher.middle(), matcher.size());
  }
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    if (pairs[i].isValid) {
      result.used.push_back(chosen.indices[i]);
    }
  }
  result.targetFromSource = before * result.targetFromSource;
  return result;
}

std::vector<unsigned> evenSamples(PointCloud& cloud, std::size_t count) {
  std::vector<unsigned> samples;
  if (cloud.isOrganized() && cloud.isContinous()) {
    auto const cells = static_cast<double>(cloud.pointCount());
    int stride = std::max(1, static_cast<int>(std::sqrt(cells / static_cast<double>(count))));
    for (samples = gridSamples(cloud, stride); samples.size() < count && stride > 1;) {
      stride = std::max(1, stride * 3 / 4);
      samples = gridSamples(cloud, stride);
    }
  } else {
    samples = chainSamples(cloud);
  }
  if (samples.size() > count) {
    for (std::size_t i = 0; i < count; ++i) {
      samples[i] = samples[i * samples.size() / count];
    }
    samples.resize(count);
  }
  std::sort(samples.begin(), samples.end());
  return samples;
}

} // namespace vorn::mv
