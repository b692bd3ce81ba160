// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/pair_equations.hpp"

#include <algorithm>
#include <cmath>
#include <optional>

namespace vorn::mv {

namespace {

constexpr int patchesPerBand = 64;
/// Of a scatter; six motions are fitted to them.
constexpr std::size_t fewestParts = 24;

cv::Vec6d jacobianOf(cv::Vec3d const& arm, cv::Vec3d const& normal) {
  cv::Vec3d const turn = arm.cross(normal);
  return {turn[0], turn[1], turn[2], normal[0], normal[1], normal[2]};
}

/// Adds a b' + b a', the part on and above the diagonal, to two sums.
void addProducts(cv::Vec6d const& a, cv::Vec6d const& b, double weight, double response,
                 PairEquations& sums) {
  for (int i = 0; i < 6; ++i) {
    for (int j = i; j < 6; ++j) {
      double const product = a[i] * b[j] + a[j] * b[i];
      sums.normal(i, j) += weight * product;
      sums.response(i, j) += response * product;
    }
  }
}

void addPair(SurfacePair const& pair, double cutoff, PairEquations& sums) {
  double const share = cutoff > 0.0 ? pair.residual / cutoff : 0.0;
  double const rest = 1.0 - share * share;
  if (!(rest > 0.0)) {
    return;
  }
  double const weight = rest * rest;
  cv::Vec6d const ofSource = jacobianOf(pair.arm, pair.sourceNormal);
  cv::Vec6d const ofTarget = jacobianOf(pair.arm, pair.targetNormal);
  addProducts(ofSource, ofTarget, 0.5 * weight, 0.5 * rest * (1.0 - 5.0 * share * share), sums);
  sums.gradient += (ofSource + ofTarget) * (0.5 * weight * pair.residual);
  cv::Vec3d const difference = pair.sourceNormal - pair.targetNormal;
  sums.normalNoise += weight * difference.dot(difference) / 6.0;
  sums.weights += weight;
  sums.squares += weight * pair.residual * pair.residual;
  ++sums.count;
}

/// Makes the scatter that of parts of about as many pairs, one after the other, as many as there are enough
/// of.
void scatterByParts(std::vector<SurfacePair> const& pairs, double cutoff, PairEquations& total) {
  std::size_t const each = std::max<std::size_t>(1, total.count / fewestParts);
  total.scatter = cv::Matx66d::zeros();
  total.parts = 0;
  PairEquations part;
  auto const end = [&] {
    total.scatter += part.gradient * part.gradient.t();
    total.parts += part.count > 0 ? 1 : 0;
    part = PairEquations();
  };
  for (SurfacePair const& pair : pairs) {
    if (pair.isValid) {
      addPair(pair, cutoff, part);
    }
    if (part.count == each) {
      end();
    }
  }
  end();
}

void mirror(cv::Matx66d& matrix) {
  for (int i = 0; i < 6; ++i) {
    for (int j = 0; j < i; ++j) {
      matrix(i, j) = matrix(j, i);
    }
  }
}

} // namespace

void PairEquations::add(PairEquations const& other) {
  normal += other.normal;
  response += other.response;
  scatter += other.scatter;
  gradient += other.gradient;
  weights += other.weights;
  squares += other.squares;
  normalNoise += other.normalNoise;
  count += other.count;
  patches += other.patches;
  parts += other.parts;
}

void findPairs(SourceSamples const& samples, SurfaceMatcher const& target,
               cv::Matx44d const& targetFromSource, PairRule const& rule, std::vector<SurfacePair>& pairs,
               Progress const& progress) {
  pairs.resize(samples.size());
  cv::Matx33d const rotation = targetFromSource.get_minor<3, 3>(0, 0);
  cv::Vec3d const translation(targetFromSource(0, 3), targetFromSource(1, 3), targetFromSource(2, 3));
  double const armScale = 1.0 / target.size();
  parallelRows(static_cast<int>(samples.patchCount()), patchesPerBand, progress, "matching",
               [&](int first, int end) {
                 for (int patch = first; patch < end; ++patch) {
                   // The first sample of a patch begins anew, so that results do not depend on other patches.
                   unsigned last = SurfaceMatcher::none;
                   for (std::size_t i = samples.patchStarts[static_cast<std::size_t>(patch)];
                        i < samples.patchStarts[static_cast<std::size_t>(patch) + 1]; ++i) {
                     SurfacePair& pair = pairs[i];
                     cv::Vec3d const point = rotation * cv::Vec3d(samples.points[i]) + translation;
                     unsigned const start = pair.cell != SurfaceMatcher::none ? pair.cell : last;
                     pair.cell = target.find(point, start, rule.maxDistance);
                     pair.isValid = false;
                     if (pair.cell == SurfaceMatcher::none) {
                       continue;
                     }
                     std::optional<cv::Vec3d> const foot = target.footOf(point, pair.cell);
                     if (!foot) {
                       pair.cell = SurfaceMatcher::none;
                       continue;
                     }
                     last = pair.cell;
                     cv::Vec3d const normal = rotation * cv::Vec3d(samples.normals[i]);
                     pair.sourceNormal = rule.areOpposed ? -normal : normal;
                     pair.targetNormal = target.normalAt(pair.cell);
                     double const cosine = pair.sourceNormal.dot(pair.targetNormal);
                     pair.isOpposed = cosine < 0.0;
                     pair.isValid = cosine >= rule.leastCosine;
                     cv::Vec3d const difference = point - *foot;
                     pair.residual = difference.dot(pair.sourceNormal + pair.targetNormal) * 0.5;
                     pair.distance = std::sqrt(difference.dot(difference));
                     pair.arm = (point - target.middle()) * armScale;
                   }
                 }
               });
}

PairEquations sumEquations(SourceSamples const& samples, std::vector<SurfacePair> const& pairs,
                           double cutoff) {
  std::vector<PairEquations> patches(samples.patchCount());
  parallelRows(static_cast<int>(patches.size()), [&](int first, int end) {
    for (int patch = first; patch < end; ++patch) {
      auto const at = static_cast<std::size_t>(patch);
      PairEquations& sums = patches[at];
      for (std::size_t i = samples.patchStarts[at]; i < samples.patchStarts[at + 1]; ++i) {
        if (pairs[i].isValid) {
          addPair(pairs[i], cutoff, sums);
        }
      }
      sums.patches = sums.count > 0 ? 1 : 0;
      sums.parts = sums.patches;
      sums.scatter = sums.gradient * sums.gradient.t();
    }
  });
  PairEquations total;
  for (PairEquations const& patch : patches) {
    total.add(patch);
  }
  if (total.patches < fewestParts) {
    scatterByParts(pairs, cutoff, total);
  }
  mirror(total.normal);
  mirror(total.response);
  return total;
}

} // namespace vorn::mv
