// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/registration/deviation.hpp>

#include <cmath>
#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "registration/registered_views.hpp"
#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

using namespace vorn::test;

/// Part of a sphere of radius 20 about (0, 0, 420), seen from the origin.
cv::Vec3d ball(double u, double v) {
  return {u, v, 420.0 - std::sqrt(400.0 - u * u - v * v)};
}

TEST(Deviations, AreDistancesToASphere) {
  cv::Mat_<cv::Vec3f> const target = view(ball, 120, -6.0, -6.0, 0.0, 1);
  // Points off the sphere by known distances: towards the viewer they are outside, so positive.
  cv::Mat_<cv::Vec3f> points(40, 40);
  for (int row = 0; row < 40; ++row) {
    for (int column = 0; column < 40; ++column) {
      cv::Vec3d const direction(0.006 * (column - 20), 0.006 * (row - 20), -1.0);
      double const radius = 20.0 + 0.01 * (row - 20);
      points(row, column) = cv::Vec3d(0, 0, 420) + direction * (radius / cv::norm(direction));
    }
  }
  cv::Matx44d const motion = motionAbout({0, 0, 420}, {10, 20, 30}, {5, -3, 2});
  for (bool const isGrid : {true, false}) {
    PointCloud cloud(moveAll(motion, points), isGrid);
    cloud.state()(3, 4) = 1;
    DeviationSettings settings;
    settings.surfaceFromCloud = motion.inv();
    cv::Mat_<float> const found = calcDeviations(cloud, PointCloud(target, isGrid), settings);
    EXPECT_TRUE(std::isnan(found(3, 4))) << "an absent point";
    // The plane at the nearest cell, up to 0.07 away, leaves the sphere by 0.07^2 / 40.
    constexpr double sagitta = 2e-4;
    for (int row = 10; row < 40; ++row) {
      EXPECT_NEAR(static_cast<double>(found(row, 30)), 0.01 * (row - 20), sagitta);
    }
    settings.maxDistance = 0.055;
    cv::Mat_<float> const limited = calcDeviations(cloud, PointCloud(target, isGrid), settings);
    EXPECT_TRUE(std::isnan(limited(10, 20)));
    EXPECT_FALSE(std::isnan(limited(16, 20)));
  }
}

TEST(Deviations, ThereAreNoneBesideTheSurface) {
  cv::Mat_<cv::Vec3f> const target = view(ball, 60, -3.0, -3.0, 0.0, 1);
  PointCloud const wide(view(ball, 120, -6.0, -6.0, 0.0, 1), true);
  cv::Mat_<float> const found = calcDeviations(wide, PointCloud(target, true));
  EXPECT_TRUE(std::isnan(found(5, 60)) && std::isnan(found(60, 115)));
  EXPECT_NEAR(static_cast<double>(found(60, 60)), 0.0, 1e-4);

  DeviationSettings negative;
  negative.maxDistance = -1.0;
  expectError([&] { calcDeviations(wide, wide, negative); }, "maxDistance is -1");
  expectError([&] { calcDeviations(wide, PointCloud(cv::Mat_<cv::Vec3f>(1, 9, cv::Vec3f(1, 2, 3)), false)); },
              "no point with a normal");
}

} // namespace
} // namespace vorn::mv
