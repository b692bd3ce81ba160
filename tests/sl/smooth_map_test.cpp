// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/smooth_map.hpp>

#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>

#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

struct Noisy {
  cv::Mat_<float> truth;
  cv::Mat_<float> map;
  cv::Mat_<float> sigma;
};

/// @param surface projector pixels at (x, y), negative for none
/// @param spread  standard deviation of the noise at (x, y)
template <class Surface, class Spread>
Noisy noisy(cv::Size const& size, Surface const& surface, Spread const& spread) {
  cv::RNG random(20261122);
  Noisy made{cv::Mat_<float>(size), cv::Mat_<float>(size), cv::Mat_<float>(size)};
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      double const place = surface(x, y);
      double const sigma = spread(x, y);
      made.truth(y, x) = static_cast<float>(place);
      made.map(y, x) = static_cast<float>(place < 0.0 ? -1.0 : place + random.gaussian(sigma));
      made.sigma(y, x) = static_cast<float>(sigma);
    }
  }
  return made;
}

template <class Where>
double rmsWhere(cv::Mat_<float> const& map, cv::Mat_<float> const& truth, Where const& where) {
  double squares = 0.0;
  int count = 0;
  for (int y = 0; y < map.rows; ++y) {
    for (int x = 0; x < map.cols; ++x) {
      if (truth(y, x) >= 0.0F && where(x, y)) {
        squares += std::pow(static_cast<double>(map(y, x)) - static_cast<double>(truth(y, x)), 2);
        ++count;
      }
    }
  }
  return std::sqrt(squares / count);
}

double meanDifference(cv::Mat_<float> const& map, cv::Mat_<float> const& truth) {
  cv::Mat const measured = truth >= 0.0F;
  return cv::mean(map, measured)[0] - cv::mean(truth, measured)[0];
}

/// As a ball of 60 pixels' radius shows: flat in the middle, steep towards its rim.
double ball(int x, int y) {
  double const reach = std::hypot(x - 80.0, y - 80.0) / 75.0;
  return reach < 0.85 ? 500.0 + 0.6 * x + 40.0 * std::sqrt(1.0 - reach * reach) : -1.0;
}

TEST(SmoothMap, LowersNoiseAsTheWindowAllowsAndKeepsCurves) {
  double const gains[] = {0.7454, 0.3928, 0.2736, 0.2107}; // square root of the middle's part of the fit
  auto const spread = [](int, int) { return 0.02; };
  Noisy const made = noisy({160, 160}, ball, spread);
  for (int radius = 1; radius <= 4; ++radius) {
    SmoothedMap const smooth = smoothMap(made.map, made.sigma, radius);
    auto const inner = [](int x, int y) { return std::hypot(x - 80.0, y - 80.0) < 50.0; };
    double const gain = gains[radius - 1];
    EXPECT_NEAR(rmsWhere(smooth.map, made.truth, inner) / 0.02, gain, 0.06 * gain) << radius;
    EXPECT_NEAR(smooth.sigma(80, 80), 0.02 * gain, 1e-3 * 0.02) << radius;
    EXPECT_LT(std::fabs(meanDifference(smooth.map, made.truth)), 0.0006) << radius; // 4 sigma of the mean
    // Three pixels in square have none to spare at the rim.
    EXPECT_GT(smooth.smoothed, (radius == 1 ? 20 : 100) * smooth.kept) << radius;
  }
  // Without noise what remains is the fit's own bias: parts in ten thousand of a pixel for such a ball.
  auto const exact = [](int, int) { return 1e-3; };
  Noisy const clean = noisy({160, 160}, ball, exact);
  SmoothedMap const smooth = smoothMap(clean.truth, clean.sigma, 3);
  EXPECT_LT(std::fabs(meanDifference(smooth.map, clean.truth)), 2e-4);
}

/// The fits that a textbook gives, by singular values over all pixels of a window without gaps in it.
TEST(SmoothMap, IsTheWeightedFitWhereNoiseDiffers) {
  auto const surface = [](int x, int y) { return 300.0 + 0.5 * x + 0.01 * y * y; };
  auto const spread = [](int x, int) { return x % 3 == 0 ? 0.05 : 0.01; };
  Noisy const made = noisy({24, 20}, surface, spread);
  constexpr int radius = 2;
  SmoothedMap const smooth = smoothMap(made.map, made.sigma, radius);
  int compared = 0;
  for (int y = 0; y < made.map.rows; ++y) {
    for (int x = 0; x < made.map.cols; ++x) {
      cv::Mat_<double> rows;
      cv::Mat_<double> values;
      for (int v = std::max(0, y - radius); v <= std::min(made.map.rows - 1, y + radius); ++v) {
        for (int u = std::max(0, x - radius); u <= std::min(made.map.cols - 1, x + radius); ++u) {
          double const w = 1.0 / static_cast<double>(made.sigma(v, u));
          double const a = u - x;
          double const b = v - y;
          rows.push_back(cv::Mat_<double>(
              {1, 6}, {w, w * a, w * b, w * a * a, w * a * b, w * b * b})); // NOLINT(bugprone-narrowing)
          values.push_back(w * static_cast<double>(made.map(v, u)));
        }
      }
      cv::Mat_<double> solution;
      cv::solve(rows, values, solution, cv::DECOMP_SVD);
      cv::Mat_<double> inverse;
      cv::invert(rows.t() * rows, inverse, cv::DECOMP_SVD);
      // A few windows hold noise beyond the limit, and give way to a smaller one.
      if (std::fabs(solution(0) - static_cast<double>(smooth.map(y, x))) < 1e-3) {
        EXPECT_NEAR(smooth.sigma(y, x), std::sqrt(inverse(0, 0)), 1e-6) << x << ", " << y;
        ++compared;
      }
    }
  }
  EXPECT_GT(compared, 24 * 20 * 97 / 100);
}

TEST(SmoothMap, LeavesStepsAndCreasesSharp) {
  // A step in depth with a missing pixel, one without, a crease and a hole.
  auto const surface = [](int x, int y) {
    if (x == 40 || std::hypot(x - 20.0, y - 30.0) < 6.0) {
      return -1.0;
    }
    double const far = x > 40 ? 25.0 : 0.0;
    double const next = x >= 70 ? -8.0 : 0.0;
    return 200.0 + 0.7 * x + far + next + (x > 100 ? 0.4 * (x - 100) : 0.0);
  };
  double const sigma = 0.02;
  Noisy const made = noisy({140, 100}, surface, [&](int, int) { return sigma; });
  SmoothedMap const smooth = smoothMap(made.map, made.sigma, 3);
  cv::Mat const wasMeasured = made.map >= 0.0F;
  cv::Mat const isMeasured = smooth.map >= 0.0F;
  EXPECT_EQ(cv::countNonZero(wasMeasured != isMeasured), 0);
  for (int edge : {40, 70, 100}) {
    auto const near = [&](int x, int) { return std::abs(x - edge) <= 3; };
    EXPECT_LT(rmsWhere(smooth.map, made.truth, near), 1.0 * sigma) << edge;
  }
  auto const rim = [](int x, int y) { return std::hypot(x - 20.0, y - 30.0) < 9.0; };
  EXPECT_LT(rmsWhere(smooth.map, made.truth, rim), 0.75 * sigma);
  // Sigma says so everywhere.
  double squares = 0.0;
  for (int y = 0; y < smooth.map.rows; ++y) {
    for (int x = 0; x < smooth.map.cols; ++x) {
      if (made.truth(y, x) >= 0.0F) {
        double const error = static_cast<double>(smooth.map(y, x)) - static_cast<double>(made.truth(y, x));
        squares += std::pow(error / static_cast<double>(smooth.sigma(y, x)), 2);
      } else {
        EXPECT_TRUE(std::isnan(smooth.sigma(y, x)));
      }
    }
  }
  EXPECT_NEAR(std::sqrt(squares / cv::countNonZero(wasMeasured)), 1.0, 0.12);
}

TEST(SmoothMap, TakesARippleOfAnotherCauseForNoiseUpToAPoint) {
  auto const rippled = [](double height) {
    return [height](int x, int y) { return 400.0 + 0.6 * x + height * std::sin(2.1 * x + 1.3 * y); };
  };
  auto const spread = [](int, int) { return 0.01; };
  Noisy const small = noisy({120, 90}, rippled(0.015), spread);
  SmoothedMap const smooth = smoothMap(small.map, small.sigma, 2);
  EXPECT_GT(smooth.smoothed, 20 * smooth.kept);
  Noisy const large = noisy({120, 90}, rippled(0.2), spread);
  SmoothedMap const rough = smoothMap(large.map, large.sigma, 2);
  EXPECT_LT(10 * rough.smoothed, rough.kept);
}

TEST(SmoothMap, IsTheSameWithAnyNumberOfThreads) {
  Noisy const made = noisy({160, 160}, ball, [](int x, int) { return x < 60 ? 0.02 : 0.05; });
  int const before = cv::getNumThreads();
  cv::setNumThreads(1);
  SmoothedMap const one = smoothMap(made.map, made.sigma, 3);
  cv::setNumThreads(7);
  SmoothedMap const seven = smoothMap(made.map, made.sigma, 3);
  cv::setNumThreads(before);
  EXPECT_EQ(cv::norm(one.map, seven.map, cv::NORM_INF), 0.0);
  EXPECT_EQ(one.smoothed, seven.smoothed);
}

TEST(SmoothMap, RefusesWhatItCannotSmooth) {
  cv::Mat_<float> const map(4, 5, 100.0F);
  cv::Mat_<float> const sigma(4, 5, 0.1F);
  test::expectError([&] { smoothMap(map, sigma, 0); }, "radius");
  test::expectError([&] { smoothMap(map, sigma, 6); }, "1 to 5");
  test::expectError([&] { smoothMap({}, {}, 2); }, "empty");
  test::expectError([&] { smoothMap(map, sigma.rowRange(0, 3), 2); }, "5 x 3");
}

TEST(SmoothMap, LeavesPixelsOfUnknownNoiseAsTheyAre) {
  Noisy made = noisy(
      {40, 30}, [](int x, int) { return 100.0 + x; }, [](int, int) { return 0.02; });
  made.map(12, 17) = 500.0F;
  made.sigma(12, 17) = std::numeric_limits<float>::infinity();
  SmoothedMap const smooth = smoothMap(made.map, made.sigma, 2);
  EXPECT_EQ(smooth.map(12, 17), 500.0F);
  EXPECT_GE(smooth.kept, 1U);
  EXPECT_EQ(smooth.kept + smooth.smoothed, 40U * 30U);
  EXPECT_NEAR(smooth.map(12, 18), made.truth(12, 18), 0.05);
}

} // namespace
} // namespace vorn::mv
