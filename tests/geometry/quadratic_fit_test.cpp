// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "geometry/quadratic_fit.hpp"

#include <cmath>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "support/seed.hpp"

namespace vorn::mv {
namespace {

/// Samples of noise, and the orthogonal decomposition that solves them without normal equations.
struct Samples {
  cv::Mat_<double> design;
  cv::Mat_<double> values;

  template <int termCount>
  static Samples addTo(QuadraticFit<termCount, 2>& fit, int count, cv::RNG& random) {
    Samples all;
    for (int k = 0; k < count; ++k) {
      double const x = random.uniform(-1.0, 1.0);
      double const y = random.uniform(-1.0, 1.0);
      double const weight = random.uniform(0.1, 3.0);
      cv::Vec2d const values(random.gaussian(5.0), 100.0 + random.gaussian(1.0));
      fit.add(quadraticTerms(x, y), values, weight);
      double const scale = std::sqrt(weight);
      cv::Matx16d const row(1, x, y, x * x, x * y, y * y);
      all.design.push_back(cv::Mat_<double>(scale * cv::Mat(row).colRange(0, termCount)));
      all.values.push_back(cv::Mat_<double>(scale * cv::Mat(values.t())));
    }
    return all;
  }
};

template <int termCount>
void expectLeastSquares(int count, cv::RNG& random) {
  QuadraticFit<termCount, 2> fit;
  Samples const samples = Samples::addTo(fit, count, random);
  cv::Mat_<double> expected;
  cv::solve(samples.design, samples.values, expected, cv::DECOMP_SVD);
  auto const surfaces = fit.solve();
  ASSERT_TRUE(surfaces);
  EXPECT_LT(cv::norm(cv::Mat(surfaces->coefficients), expected, cv::NORM_INF), 1e-8);
  cv::Mat const gram = samples.design.t() * samples.design;
  cv::Matx<double, termCount, termCount> const covariance = cv::Mat(gram.inv(cv::DECOMP_SVD));
  EXPECT_NEAR(surfaces->originVariance, covariance(0, 0), 1e-9);
}

TEST(QuadraticSurfaceFit, IsTheLeastSquaresSolution) {
  cv::RNG random(test::seed());
  for (int const count : {20, 100}) {
    expectLeastSquares<3>(count, random);
    expectLeastSquares<6>(count, random);
  }
}

TEST(QuadraticSurfaceFit, IsNothingForSamplesThatDoNotDetermineIt) {
  QuadraticFit<3, 1> onOneLine;
  QuadraticFit<6, 1> onOneLineToo;
  for (int k = -5; k <= 5; ++k) {
    onOneLine.add(quadraticTerms(0.2 * k, 0), 1.0);
    onOneLineToo.add(quadraticTerms(0, 0.2 * k), 1.0);
  }
  EXPECT_FALSE(onOneLine.solve());
  EXPECT_FALSE(onOneLineToo.solve());
}

} // namespace
} // namespace vorn::mv
