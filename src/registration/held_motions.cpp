// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/held_motions.hpp"

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>

namespace vorn::mv {

namespace {

/// Squared: a surface that leaves itself by 0.3 % of a motion's length holds it no better than a plane would.
constexpr double leastHold = 1e-5;
/// The noise of the normals cancels between the clouds but for its share by chance, which is given this room.
constexpr double chanceRoom = 4.0;
/// A free motion that turns by less than this share is a translation.
constexpr double leastTurn = 0.02;

/// The inverse of a matrix within the space that orthonormal columns span.
cv::Matx66d inverseWithin(cv::Mat const& basis, cv::Matx66d const& matrix) {
  cv::Mat const within = basis.t() * cv::Mat(matrix) * basis;
  cv::Mat const inverse = basis * within.inv(cv::DECOMP_SVD) * basis.t();
  return cv::Matx66d(inverse.ptr<double>());
}

} // namespace

cv::Matx66d projectionOnto(cv::Mat_<double> const& motions) {
  if (motions.empty()) {
    return cv::Matx66d::zeros();
  }
  cv::Mat const product = motions * motions.t();
  return cv::Matx66d(product.ptr<double>());
}

HeldMotions heldMotionsOf(PairEquations const& equations) {
  cv::Vec6d values;
  cv::Matx66d vectors; // one a row, largest value first
  cv::eigen(equations.normal * (1.0 / equations.weights), values, vectors);
  double const chance = chanceRoom * equations.normalNoise / equations.weights /
                        std::sqrt(std::max(1.0, static_cast<double>(equations.patches)));
  double const limit = std::max(leastHold, chance);
  int held = 0;
  while (held < 6 && values(held) >= limit) {
    ++held;
  }
  HeldMotions motions;
  motions.held.create(6, held);
  motions.free.create(6, 6 - held);
  for (int i = 0; i < 6; ++i) {
    for (int j = 0; j < 6; ++j) {
      (j < held ? motions.held(i, j) : motions.free(i, j - held)) = vectors(j, i);
    }
  }
  return motions;
}

cv::Vec6d solveWithin(HeldMotions const& motions, PairEquations const& equations) {
  if (motions.held.empty()) {
    return {};
  }
  return inverseWithin(motions.held, equations.normal) * equations.gradient * -1.0;
}

cv::Matx66d covarianceOf(HeldMotions const& motions, PairEquations const& equations, double size) {
  cv::Matx66d covariance = projectionOnto(motions.held) * (size * size);
  auto const parts = static_cast<double>(equations.parts);
  if (!motions.held.empty() && parts > 6.0) {
    cv::Matx66d const inverse = inverseWithin(motions.held, equations.response);
    covariance = inverse * equations.scatter * inverse * (parts / (parts - 6.0));
  }
  return (covariance + covariance.t()) * 0.5 + projectionOnto(motions.free) * (size * size);
}

std::vector<FreeMotion> freeMotionsOf(HeldMotions const& motions, cv::Vec3d const& pivot, double size) {
  std::vector<FreeMotion> found;
  if (motions.free.empty()) {
    return found;
  }
  // Motions without rotation first: the rest then need not mix with them.
  cv::SVD const turns(cv::Mat(motions.free.rowRange(0, 3)), cv::SVD::FULL_UV);
  cv::Mat_<double> mixed;
  cv::gemm(motions.free, turns.vt, 1.0, cv::noArray(), 0.0, mixed, cv::GEMM_2_T);
  cv::Mat_<double> const strengths = turns.w;
  std::vector<cv::Vec3d> translations;
  for (int i = mixed.cols - 1; i >= 0; --i) {
    cv::Vec3d const turn(mixed(0, i), mixed(1, i), mixed(2, i));
    cv::Vec3d shift(mixed(3, i), mixed(4, i), mixed(5, i));
    double const strength = i < strengths.rows ? strengths(i) : 0.0;
    FreeMotion motion;
    if (strength < leastTurn) {
      motion.kind = FreeMotion::Kind::Translation;
      motion.axis = shift * (1.0 / cv::norm(shift));
      motion.point = pivot;
      translations.push_back(motion.axis);
    } else {
      for (cv::Vec3d const& free : translations) {
        shift -= free * free.dot(shift);
      }
      // The points on the axis do not move across it: shift + turn x (point - pivot) = 0 there.
      motion.kind = FreeMotion::Kind::Rotation;
      motion.axis = turn * (1.0 / strength);
      motion.point = pivot + turn.cross(shift) * (size / (strength * strength));
    }
    found.push_back(motion);
  }
  return found;
}

} // namespace vorn::mv
