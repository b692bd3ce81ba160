// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <limits>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "tools/scan/truth_comparison.hpp"

namespace vorn::tools {
namespace {

constexpr auto clean = static_cast<uchar>(sim::TruthMask::Clean);
constexpr auto edge = static_cast<uchar>(sim::TruthMask::Edge);

TEST(TruthComparison, TakesQuantilesOfTheDistancesOfCleanPixels) {
  constexpr int count = 1001;
  sim::Truth truth;
  truth.x_in_cam = cv::Mat_<cv::Vec3f>(1, count + 2, cv::Vec3f(10, 20, 500));
  cv::Mat_<cv::Vec3f> xyz = truth.x_in_cam.clone();
  cv::Mat_<uchar> mask(xyz.size(), clean);
  for (int i = 0; i < count; ++i) {
    // Every thousandth once, in another order: 10 and 1001 have no common divisor.
    xyz(0, i)[i % 3] += 0.001F * static_cast<float>(10 * i % count);
  }
  xyz(0, count)[2] += 100.0F;
  mask(0, count) = edge;
  xyz(0, count + 1)[2] = std::numeric_limits<float>::quiet_NaN();

  TruthComparison const result = compareWithTruth(xyz, truth, mask);
  EXPECT_EQ(result.expected, count + 1U);
  EXPECT_EQ(result.measured, static_cast<std::size_t>(count));
  constexpr double rounding = 1e-4; // of floats near 500
  EXPECT_NEAR(result.median, 0.5, rounding);
  EXPECT_NEAR(result.error95, 0.95, rounding);
  EXPECT_NEAR(result.worst, 1.0, rounding);
  // The sum of the squares of 0 to n is n (n + 1) (2 n + 1) / 6.
  EXPECT_NEAR(result.rms, std::sqrt(1000.0 * 1001 * 2001 / 6 / count) / 1000, rounding);
}

TEST(TruthComparison, SizeErrorIsThatOfTheDiameter) {
  constexpr double radius = 30;
  constexpr double tooLarge = 0.25;
  sim::Object ball;
  ball.name = "ball";
  ball.label = 3;
  ball.shape = sim::Sphere{radius};
  ball.world_from_object.translation = {0, 0, 500};
  cv::Mat_<cv::Vec3f> xyz(60, 60);
  for (int y = 0; y < xyz.rows; ++y) {
    for (int x = 0; x < xyz.cols; ++x) {
      double const tilt = 0.02 * y;
      double const turn = 2 * CV_PI * x / xyz.cols;
      cv::Vec3d const out(std::sin(tilt) * std::cos(turn), std::sin(tilt) * std::sin(turn), -std::cos(tilt));
      xyz(y, x) = cv::Vec3d(0, 0, 500) + (radius + tooLarge) * out;
    }
  }
  sim::Truth truth;
  truth.label = cv::Mat_<std::uint8_t>(xyz.size(), std::uint8_t{3});
  auto const figures = measureArtefacts(xyz, truth, cv::Mat_<uchar>(xyz.size(), clean), sim::Scene({ball}));
  ASSERT_EQ(figures.size(), 2U);
  EXPECT_EQ(figures[1].what, "ball: size error");
  EXPECT_NEAR(figures[1].value, 2 * tooLarge, 1e-3);
  EXPECT_NEAR(figures[0].value, 0.0, 1e-3) << figures[0].what;
}

} // namespace
} // namespace vorn::tools
