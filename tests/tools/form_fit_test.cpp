// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "tools/scan/form_fit.hpp"

namespace vorn::tools {
namespace {

/// Points on a cap of a sphere, as a camera sees it, with radial noise of the given standard deviation.
std::vector<cv::Vec3d> cap(cv::Vec3d const& centre, double radius, double sigma) {
  std::vector<cv::Vec3d> points;
  constexpr double widest = 1.1; // rad from the axis
  constexpr double step = 0.02;
  for (double tilt = step; tilt < widest; tilt += step) {
    for (double turn = 0.0; turn < 2.0 * CV_PI; turn += step / std::sin(tilt)) {
      cv::Vec3d const out(std::sin(tilt) * std::cos(turn), std::sin(tilt) * std::sin(turn), -std::cos(tilt));
      points.push_back(centre + out * (radius + cv::theRNG().gaussian(sigma)));
    }
  }
  return points;
}

TEST(FitSphere, RecoversACapFarFromTheOrigin) {
  cv::Vec3d const centre(-62, -6, 497);
  constexpr double radius = 38.0;
  constexpr double sigma = 0.02;
  auto const exact = fitSphere(cap(centre, radius, 0.0));
  constexpr double rounding = 1e-8;
  EXPECT_LT(cv::norm(exact.centre - centre), rounding);
  EXPECT_NEAR(exact.radius, radius, rounding);
  EXPECT_LT(exact.formError, rounding);

  auto const points = cap(centre, radius, sigma);
  auto const noisy = fitSphere(points);
  // Five standard deviations of the mean, ten-fold for the weak geometry of a cap.
  double const margin = 50.0 * sigma / std::sqrt(static_cast<double>(points.size()));
  EXPECT_LT(cv::norm(noisy.centre - centre), margin);
  EXPECT_NEAR(noisy.radius, radius, margin);
  // 99.7 % of a normal distribution lie within 2 * 2.968 sigma.
  EXPECT_NEAR(noisy.formError, 5.936 * sigma, 0.1 * 5.936 * sigma);
}

TEST(FitPlane, FlatnessIsTheBandOfANormalDistribution) {
  cv::Vec3d const normal = cv::normalize(cv::Vec3d(0.2, -0.3, -1.0));
  cv::Vec3d const point(5, 5, 550);
  cv::Vec3d const u = cv::normalize(normal.cross(cv::Vec3d(1, 0, 0)));
  cv::Vec3d const v = normal.cross(u);
  constexpr double sigma = 0.03;
  std::vector<cv::Vec3d> points;
  for (int i = 0; i < 20000; ++i) {
    points.push_back(point + u * cv::theRNG().uniform(-80.0, 80.0) + v * cv::theRNG().uniform(-60.0, 60.0) +
                     normal * cv::theRNG().gaussian(sigma));
  }
  auto const plane = fitPlane(points);
  EXPECT_NEAR(std::abs(plane.normal.dot(normal)), 1.0, 1e-9);
  EXPECT_NEAR(plane.rms, sigma, 0.03 * sigma);
  EXPECT_NEAR(plane.flatness, 5.936 * sigma, 0.1 * 5.936 * sigma);
}

} // namespace
} // namespace vorn::tools
