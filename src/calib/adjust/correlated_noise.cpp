// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/adjust/correlated_noise.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

#include <Eigen/Cholesky>
#include <opencv2/core.hpp>

#include "calib/adjust/shape_basis.hpp"

namespace vorn::mv {

namespace {

/// Products of dots' residuals by how far they are apart on the target, in pitches: 0 with themselves.
struct LagSums {
  static constexpr std::size_t most = 12; // pitches
  std::array<double, most + 1> products{};
  std::array<double, most + 1> pairs{};

  /// Over that of a dot with itself.
  double correlation(std::size_t lag) const { return products[lag] / pairs[lag] / (products[0] / pairs[0]); }
};

/// A dot's residual in standard deviations, and its place in pitches.
struct PlacedResidual {
  cv::Vec2d place;
  cv::Vec2d residual;
};

std::vector<PlacedResidual> placedResiduals(Bundle const& bundle, std::size_t view,
                                            std::vector<DotResidual> const& residuals, int device,
                                            double pitch) {
  std::vector<PlacedResidual> placed;
  std::vector<BundleDot> const& dots = bundle.views[view].dots;
  for (std::size_t i = 0; i < dots.size(); ++i) {
    if (device == 0 ? dots[i].has0 : dots[i].has1) {
      cv::Point2f const& place = bundle.target[static_cast<std::size_t>(dots[i].target)];
      cv::Vec2d const& r = device == 0 ? residuals[i].in0 : residuals[i].in1;
      cv::Vec2d const& weights = dots[i].weights[device];
      placed.push_back({cv::Vec2d(place.x, place.y) / pitch,
                        {r[0] * std::sqrt(weights[0]), r[1] * std::sqrt(weights[1])}});
    }
  }
  return placed;
}

void addPairs(std::vector<PlacedResidual> const& placed, LagSums& sums) {
  constexpr double farthest = LagSums::most + 0.5;
  for (std::size_t i = 0; i < placed.size(); ++i) {
    for (std::size_t j = 0; j <= i; ++j) {
      cv::Vec2d const way = placed[i].place - placed[j].place;
      double const square = way.dot(way);
      if (square < farthest * farthest) {
        auto const lag = static_cast<std::size_t>(std::lround(std::sqrt(square)));
        sums.products[i == j ? 0 : lag] += placed[i].residual.dot(placed[j].residual);
        sums.pairs[i == j ? 0 : lag] += 1;
      }
    }
  }
}

double bell(double distance, double reach) {
  return std::exp(-0.5 * distance * distance / (reach * reach));
}

/// The share and what is taken off that fit best for a reach, and how much better than no share, in chi^2.
struct ReachFit {
  NoiseCorrelation correlation;
  double gain = 0;
};

ReachFit fitOf(LagSums const& sums, double reach) {
  // The correlation is share * bell - taken + bend * lag^2: poses and lenses take off more of what near dots
  // share than of what dots far apart do.
  Eigen::Matrix3d normal = Eigen::Matrix3d::Zero();
  Eigen::Vector3d slope = Eigen::Vector3d::Zero();
  for (std::size_t lag = 1; lag <= LagSums::most; ++lag) {
    if (sums.pairs[lag] > 0) {
      double const far = static_cast<double>(lag) / LagSums::most;
      Eigen::Vector3d const terms(bell(static_cast<double>(lag), reach), -1, far * far);
      double const weight = 2 * sums.pairs[lag]; // of two coordinates: by chance its variance is 1 / n
      normal += weight * terms * terms.transpose();
      slope += weight * sums.correlation(lag) * terms;
    }
  }
  Eigen::LLT<Eigen::Matrix3d> const decomposition(normal);
  if (decomposition.info() != Eigen::Success) {
    return {};
  }
  Eigen::Vector3d const found = decomposition.solve(slope);
  Eigen::Vector2d const without = normal.bottomRightCorner<2, 2>().llt().solve(slope.tail<2>());
  return {{found[0], reach, std::max(0.0, found[1])}, found.dot(slope) - without.dot(slope.tail<2>())};
}

/// What the common parameters' slopes scatter by through one view's dots, over that of independent errors of
/// variance 1.
/// @param pitch of the target
Eigen::MatrixXd addedScatter(Bundle const& bundle, ViewRows const& rows, Eigen::MatrixXd const& carried,
                             NoiseCorrelation const& correlation, double pitch) {
  Eigen::Index const common = carried.rows();
  // Less what the pose takes up. Dots do not move with what follows their own parameters.
  Eigen::MatrixXd free = rows.slope.rightCols<6>() * -carried.transpose();
  Eigen::Index const own = std::min(common, rows.slope.cols() - 6);
  free.leftCols(own) += rows.slope.leftCols(own);
  double const reach = correlation.reach * pitch;
  Eigen::MatrixXd spread = (1 + correlation.taken) * free;
  constexpr double reaches = 4;
  double const farthest = reaches * reach;
  for (std::size_t i = 0; i < rows.dots.size(); ++i) {
    cv::Point2f const& here = bundle.target[static_cast<std::size_t>(rows.dots[i])];
    auto const row = 2 * static_cast<Eigen::Index>(i);
    for (std::size_t j = 0; j < rows.dots.size(); ++j) {
      cv::Point2d const way = bundle.target[static_cast<std::size_t>(rows.dots[j])] - here;
      double const square = way.dot(way); // most dots are too far, and roots take time
      if (j != i && square < farthest * farthest) {
        spread.middleRows<2>(row) += correlation.share * bell(std::sqrt(square), reach) *
                                     free.middleRows<2>(2 * static_cast<Eigen::Index>(j));
      }
    }
  }
  return free.transpose() * (spread - free);
}

} // namespace

NoiseCorrelation noiseCorrelationOf(Bundle const& bundle,
                                    std::vector<std::vector<DotResidual>> const& residuals, int device) {
  double const pitch = medianPitch(bundle.target);
  LagSums sums;
  for (std::size_t i = 0; i < bundle.views.size(); ++i) {
    addPairs(placedResiduals(bundle, i, residuals[i], device, pitch), sums);
  }
  if (!(sums.products[0] > 0)) {
    return {};
  }
  constexpr std::array<double, 12> reaches{0.7, 0.85, 1, 1.2, 1.4, 1.7, 2, 2.4, 2.8, 3.4, 4, 5};
  constexpr double mostChance = 20; // of the best of them: in independent errors up to 12
  ReachFit best;
  best.gain = mostChance;
  for (double const reach : reaches) {
    ReachFit const fit = fitOf(sums, reach);
    if (fit.correlation.share > 0 && fit.gain > best.gain) {
      best = fit;
    }
  }
  // Not more than all of a dot's error.
  best.correlation.share = std::min(best.correlation.share, 1 + best.correlation.taken);
  return best.correlation;
}

Eigen::MatrixXd correlatedCovarianceOf(Bundle const& bundle, Transfers const& transfers,
                                       NormalEquations const& whole, Eigen::MatrixXd const& covariance) {
  if (bundle.shape.isByDot() || covariance.size() == 0) {
    return covariance;
  }
  auto const residuals = residualsOf(bundle, transfers);
  double const pitch = medianPitch(bundle.target);
  Eigen::MatrixXd scatter = Eigen::MatrixXd::Zero(covariance.rows(), covariance.cols());
  for (int device = 0; device < static_cast<int>(bundle.devices.size()); ++device) {
    NoiseCorrelation const correlation = noiseCorrelationOf(bundle, residuals, device);
    for (std::size_t i = 0; i < bundle.views.size() && correlation.share > 0; ++i) {
      Eigen::MatrixXd const carried = whole.mixed[i] * whole.pose[i].llt().solve(PoseMatrix::Identity());
      scatter += addedScatter(bundle, viewRowsOf(bundle, transfers, i, device), carried, correlation, pitch);
    }
  }
  Eigen::MatrixXd const result = covariance + covariance * scatter * covariance;
  return 0.5 * (result + result.transpose());
}

} // namespace vorn::mv
