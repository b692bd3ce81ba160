// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/target_map.hpp"

#include <algorithm>
#include <cmath>
#include <opencv2/calib3d.hpp>

#include "geometry/quadratic_fit.hpp"

namespace vorn::mv {
namespace {

using Sample = MapSample;

int distinctValues(std::vector<Sample> const& samples, double cv::Point2d::*coordinate) {
  std::vector<int> values;
  values.reserve(samples.size());
  for (Sample const& sample : samples) {
    values.push_back(cvRound(sample.step.*coordinate));
  }
  std::sort(values.begin(), values.end());
  return static_cast<int>(std::unique(values.begin(), values.end()) - values.begin());
}

/// A polynomial through the residuals around a place.
struct LocalFit {
  std::array<cv::Point2d, 6> coefficients = {};
  int terms = 0;
  double variance = 0;     ///< at the place, for residuals of variance 1
  cv::Vec2d slopeVariance; ///< of the slopes along x and y there
};

/// Least-squares polynomial through the samples' residuals with `Count` of the six powers.
template <int Count>
std::optional<LocalFit> fitPolynomial(std::vector<Sample> const& samples) {
  QuadraticFit<Count, 2> fit;
  for (Sample const& sample : samples) {
    fit.add(quadraticTerms(sample.step.x, sample.step.y), sample.residual);
  }
  auto const fitted = fit.solve();
  constexpr double mostVariance = 20;
  if (!fitted || !(fitted->originVariance < mostVariance)) {
    return std::nullopt;
  }
  LocalFit result;
  for (int i = 0; i < Count; ++i) {
    result.coefficients[static_cast<std::size_t>(i)] = {fitted->coefficients(i, 0),
                                                        fitted->coefficients(i, 1)};
  }
  result.terms = Count;
  result.variance = fitted->originVariance;
  result.slopeVariance = fitted->slopeVariance;
  return result;
}

/// The polynomial of the highest degree that the samples determine.
std::optional<LocalFit> fitLocally(std::vector<Sample> const& samples) {
  int const columns = distinctValues(samples, &cv::Point2d::x);
  int const rows = distinctValues(samples, &cv::Point2d::y);
  std::optional<LocalFit> fitted;
  if (columns >= 3 && rows >= 3 && samples.size() >= 8) {
    fitted = fitPolynomial<6>(samples);
  }
  if (!fitted && columns >= 2 && rows >= 2 && samples.size() >= 4) {
    fitted = fitPolynomial<3>(samples);
  }
  return fitted;
}

} // namespace

cv::Point2d LocalMap::position(cv::Point2d const& index) const {
  cv::Vec3d const h = homography_ * cv::Vec3d(index.x, index.y, 1);
  cv::Point2d result(h[0] / h[2], h[1] / h[2]);
  cv::Point2d const d = index - centre_;
  cv::Vec6d const terms = quadraticTerms(d.x, d.y);
  for (std::size_t i = 0; i < offset_.size(); ++i) {
    result += terms[static_cast<int>(i)] * offset_[i];
  }
  return result;
}

cv::Matx22d LocalMap::jacobian(cv::Point2d const& index) const {
  cv::Matx33d const& h = homography_;
  cv::Vec3d const v = h * cv::Vec3d(index.x, index.y, 1);
  double const u = v[0] / v[2];
  double const w = v[1] / v[2];
  cv::Point2d const d = index - centre_;
  cv::Point2d const byX = offset_[1] + 2.0 * d.x * offset_[3] + d.y * offset_[4];
  cv::Point2d const byY = offset_[2] + d.x * offset_[4] + 2.0 * d.y * offset_[5];
  return {(h(0, 0) - u * h(2, 0)) / v[2] + byX.x, (h(0, 1) - u * h(2, 1)) / v[2] + byY.x,
          (h(1, 0) - w * h(2, 0)) / v[2] + byX.y, (h(1, 1) - w * h(2, 1)) / v[2] + byY.y};
}

cv::Point2d LocalMap::discOffset(cv::Point2d const& index, double radius) const {
  // Gauss-Legendre in the squared radius and equal steps in the angle: exact to the third degree in either.
  constexpr int angles = 8;
  double const root = 0.5 / std::sqrt(3.0);
  cv::Point2d const origin = position(index);
  cv::Point2d sum;
  double weights = 0;
  for (double const squared : {0.5 - root, 0.5 + root}) {
    double const r = radius * std::sqrt(squared);
    for (int i = 0; i < angles; ++i) {
      double const angle = 2.0 * CV_PI * i / angles;
      cv::Point2d const p = index + cv::Point2d(r * std::cos(angle), r * std::sin(angle));
      double const weight = std::abs(cv::determinant(jacobian(p)));
      sum += weight * (position(p) - origin);
      weights += weight;
    }
  }
  return sum / weights;
}

TargetMap::TargetMap(std::vector<TargetDot> dots, cv::Matx33d const& homography)
    : dots_(std::move(dots)), homography_(homography) {
  for (std::size_t i = 0; i < dots_.size(); ++i) {
    cv::Vec3d const h = homography * cv::Vec3d(dots_[i].index.x, dots_[i].index.y, 1);
    residuals_.push_back(dots_[i].centre - cv::Point2d(h[0] / h[2], h[1] / h[2]));
    index_.set(dots_[i].index, static_cast<int>(i));
  }
}

std::optional<TargetMap> TargetMap::fit(std::vector<TargetDot> const& dots) {
  constexpr std::size_t leastDots = 6;
  if (dots.size() < leastDots) {
    return std::nullopt;
  }
  std::vector<cv::Point2d> plane;
  std::vector<cv::Point2d> image;
  for (TargetDot const& dot : dots) {
    plane.emplace_back(dot.index);
    image.push_back(dot.centre);
  }
  cv::Mat const homography = cv::findHomography(plane, image);
  if (homography.empty() || !cv::checkRange(homography)) {
    return std::nullopt;
  }
  return TargetMap(dots, cv::Matx33d(homography));
}

std::optional<LocalMap> TargetMap::around(cv::Point const& index, Self self, int reach) const {
  auto const fitted = fitLocally(samplesAround(index, self, reach));
  return fitted ? std::optional(LocalMap(homography_, index, fitted->coefficients, fitted->variance))
                : std::nullopt;
}

std::optional<double> TargetMap::cellSpread(cv::Point const& index) const {
  std::vector<Sample> const samples = samplesAround(index, Self::LeftOut, 2);
  auto const fitted = fitLocally(samples);
  auto const freedom = static_cast<double>(samples.size()) - (fitted ? fitted->terms : 0);
  if (!fitted || freedom < 1) {
    return std::nullopt;
  }
  double squares = 0;
  for (Sample const& sample : samples) {
    cv::Vec6d const terms = quadraticTerms(sample.step.x, sample.step.y);
    cv::Point2d left = sample.residual;
    for (std::size_t i = 0; i < fitted->coefficients.size(); ++i) {
      left -= terms[static_cast<int>(i)] * fitted->coefficients[i];
    }
    squares += left.dot(left);
  }
  double const variance = squares / (2.0 * freedom);
  LocalMap const local(homography_, index, fitted->coefficients, fitted->variance);
  // The area is the determinant, whose relative change is the trace of inverse times change.
  cv::Matx22d const inverse = local.jacobian(index).inv();
  return std::sqrt(variance * (fitted->slopeVariance[0] * inverse.row(0).dot(inverse.row(0)) +
                               fitted->slopeVariance[1] * inverse.row(1).dot(inverse.row(1))));
}

std::vector<MapSample> TargetMap::samplesAround(cv::Point const& index, Self self, int reach) const {
  std::vector<Sample> samples;
  int const side = 2 * reach + 1;
  samples.reserve(static_cast<std::size_t>(side) * static_cast<std::size_t>(side));
  for (int y = -reach; y <= reach; ++y) {
    for (int x = -reach; x <= reach; ++x) {
      int const dot = index_.at(index + cv::Point(x, y));
      if (dot != GridIndex::none && (self == Self::Included || x != 0 || y != 0)) {
        samples.push_back({cv::Point2d(x, y), residuals_[static_cast<std::size_t>(dot)]});
      }
    }
  }
  return samples;
}

} // namespace vorn::mv
