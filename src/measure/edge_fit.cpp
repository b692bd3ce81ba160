// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "measure/edge_fit.hpp"

#include <cmath>

#include <opencv2/core.hpp>

namespace vorn::mv {

namespace {

constexpr double leastBlur = 0.05; // px

double normalShare(double z) {
  return 0.5 * std::erfc(-z / std::sqrt(2.0));
}

double normalDensity(double z) {
  return std::exp(-0.5 * z * z) / std::sqrt(2.0 * CV_PI);
}

struct Sums {
  cv::Matx44d normal = cv::Matx44d::zeros(); ///< of position, blur, low, contrast
  cv::Vec4d right;
  double squares = 0.0;
};

Sums sumsOf(std::vector<double> const& positions, std::vector<double> const& values, std::size_t begin,
            std::size_t end, EdgeFit const& edge) {
  Sums sums;
  for (std::size_t i = begin; i < end; ++i) {
    double const z = (positions[i] - edge.position) / edge.blur;
    double const share = normalShare(z);
    double const slope = edge.contrast * normalDensity(z) / edge.blur;
    cv::Vec4d const row(-slope, -slope * z, 1.0, share);
    double const residual = values[i] - edge.low - edge.contrast * share;
    sums.normal += row * row.t();
    sums.right += row * residual;
    sums.squares += residual * residual;
  }
  return sums;
}

} // namespace

std::optional<EdgeFit> fitEdge(std::vector<double> const& positions, std::vector<double> const& values,
                               std::size_t begin, std::size_t end, EdgeFit start) {
  constexpr std::size_t unknowns = 4;
  constexpr int mostSteps = 60;
  constexpr double converged = 1e-9; // px
  if (end < begin + unknowns + 1) {
    return std::nullopt;
  }
  EdgeFit edge = start;
  Sums at = sumsOf(positions, values, begin, end, edge);
  double damping = 1e-3;
  for (int i = 0; i < mostSteps && damping < 1e9; ++i) {
    cv::Matx44d damped = at.normal;
    for (int k = 0; k < 4; ++k) {
      damped(k, k) *= 1.0 + damping;
    }
    cv::Vec4d const step = damped.solve(at.right, cv::DECOMP_LU);
    EdgeFit next = edge;
    next.position += step[0];
    next.blur = std::max(leastBlur, next.blur + step[1]);
    next.low += step[2];
    next.contrast += step[3];
    Sums const there = sumsOf(positions, values, begin, end, next);
    if (!(there.squares <= at.squares)) {
      damping *= 10.0;
      continue;
    }
    bool const isDone = std::abs(step[0]) < converged && std::abs(step[1]) < converged;
    edge = next;
    at = there;
    damping *= 0.1;
    if (isDone) {
      break;
    }
  }
  bool isRegular = false;
  cv::Matx44d const inverse = at.normal.inv(cv::DECOMP_LU, &isRegular);
  if (!isRegular || edge.position < positions[begin] || edge.position > positions[end - 1]) {
    return std::nullopt;
  }
  double const variance = at.squares / static_cast<double>(end - begin - unknowns);
  edge.variance = inverse(0, 0) * variance;
  edge.contrastVariance = inverse(3, 3) * variance;
  return edge;
}

} // namespace vorn::mv
