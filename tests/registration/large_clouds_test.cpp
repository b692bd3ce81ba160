// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Clouds of so many points that blocks of them are registered in their stead.
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <opencv2/core.hpp>

#include <vorn/core/system.hpp>
#include <vorn/mv/registration/registration.hpp>

#include "registration/registered_views.hpp"

namespace vorn::mv {
namespace {

using namespace vorn::test;

constexpr int side = 240;
cv::Vec3d const middle(12.0, 12.0, 400.0);

class RegisterLarge : public testing::Test {
protected:
  RegisterLarge() { System::set("EnableDebugMode", false); }
};

/// The covariance that no unbiased estimate from points of two views is below: of the rotation about a pivot
/// and the shift, from the true normals of a surface z(x, y).
cv::Matx66d leastCovariance(Surface const& surface, cv::Vec3d const& pivot, double sigma) {
  cv::Matx66d information = cv::Matx66d::zeros();
  constexpr double small = 1e-4;
  for (int row = 0; row < side; ++row) {
    for (int column = 0; column < side; ++column) {
      double const u = 0.1 * column;
      double const v = 0.1 * row;
      cv::Vec3d const normal =
          cv::normalize((surface(u + small, v) - surface(u, v)).cross(surface(u, v + small) - surface(u, v)));
      cv::Vec3d const turn = (surface(u, v) - pivot).cross(normal);
      cv::Vec6d const jacobian(turn[0], turn[1], turn[2], normal[0], normal[1], normal[2]);
      information += jacobian * jacobian.t();
    }
  }
  return information.inv() * (2.0 * sigma * sigma);
}

cv::Vec3d waves(double u, double v) {
  return {u, v, 400.0 + 2.0 * std::sin(0.3 * u) * std::cos(0.25 * v) + 0.005 * u * v};
}

/// Whether averaged or not, what the points know must be in the result, in its covariance, and in its
/// figures.
TEST_F(RegisterLarge, AreAsExactAsTheirPointsAllow) {
  constexpr double sigma = 0.02;
  cv::Matx44d const truth = motionAbout(middle, {0.3, -0.2, 0.4}, {0.2, -0.1, 0.15});
  for (bool const isGrid : {true, false}) {
    double squares = 0.0;
    double claimed = 0.0;
    constexpr int trials = 4;
    for (unsigned trial = 0; trial < trials; ++trial) {
      cv::Mat_<cv::Vec3f> const target = view(waves, side, 0.0, 0.0, sigma, 2 * trial + 1);
      cv::Mat_<cv::Vec3f> const source =
          moveAll(truth.inv(), view(waves, side, 0.037, 0.021, sigma, 2 * trial + 2));
      Registration const found = registerClouds(PointCloud(source, isGrid), PointCloud(target, isGrid));
      cv::Matx66d const least = leastCovariance(waves, found.pivot, sigma);
      cv::Vec6d const error = errorOf(found.targetFromSource, truth, found.pivot);
      squares += error.dot(least.inv() * error) / 6.0 / trials;
      claimed += cv::trace(least.inv() * found.covariance) / 6.0 / trials;
      EXPECT_NEAR(found.rms, std::sqrt(2.0) * sigma, 0.001);
      EXPECT_NEAR(found.sigma, std::sqrt(2.0) * sigma, 0.0015);
      EXPECT_NEAR(static_cast<double>(found.matches), found.overlap * side * side, 0.01 * side * side);
      EXPECT_GT(found.overlap, 0.97);
      EXPECT_FALSE(found.isDoubtful());
    }
    // Of 24 normally distributed numbers, 1 but for chance of 0.29.
    EXPECT_LT(squares, 1.9) << isGrid;
    EXPECT_NEAR(claimed, 1.05, 0.25) << isGrid;
  }
}

/// The mean of points of a curved surface lies inside of it, the more the farther they are apart.
TEST_F(RegisterLarge, OfOtherSpacingLieOnEachOther) {
  auto const dome = [](double scale) {
    return [scale](double u, double v) {
      double const x = scale * (u - 12.0);
      double const y = scale * (v - 12.0);
      return cv::Vec3d(
          x, y, 360.0 + std::sqrt(1600.0 - x * x - y * y) + 0.3 * std::sin(0.5 * x) * std::cos(0.4 * y));
    };
  };
  cv::Mat_<cv::Vec3f> const target = view(dome(1.0), side, 0.0, 0.0, 0.0, 1);
  cv::Mat_<cv::Vec3f> const source = view(dome(0.5), side, 0.0, 0.0, 0.0, 2);
  for (bool const isGrid : {true, false}) {
    Registration const found = registerClouds(PointCloud(source, isGrid), PointCloud(target, isGrid));
    // The means of sixteen points lie 0.0006 inside of one cloud and a quarter of that of the other.
    EXPECT_LT(std::abs(found.targetFromSource(2, 3) + 400.0 * (found.targetFromSource(2, 2) - 1.0)), 0.0001)
        << isGrid;
  }
}

/// Windows that reach over a step turn normals there, alike in both views: they would lay grid onto grid.
TEST_F(RegisterLarge, StepsDoNotDrawTheResult) {
  auto const steps = [](double u, double v) {
    double const step = 0.4 * std::floor(u / 8.5) - 0.3 * std::floor((v + 0.4 * u) / 11.5);
    return cv::Vec3d(u, v, 400.0 + step + 0.002 * u * v + 0.2 * std::sin(0.3 * u) * std::sin(0.35 * v));
  };
  cv::Matx44d const truth = motionAbout(middle, {0.02, -0.03, 0.02}, {0.02, -0.03, 0.05});
  cv::Mat_<cv::Vec3f> const target = view(steps, side, 0.0, 0.0, 0.002, 1);
  cv::Mat_<cv::Vec3f> const source = moveAll(truth.inv(), view(steps, side, 0.013, 0.041, 0.002, 2));
  for (bool const isGrid : {true, false}) {
    Registration const found = registerClouds(PointCloud(source, isGrid), PointCloud(target, isGrid));
    cv::Vec6d const error = errorOf(found.targetFromSource, truth, found.pivot);
    for (int i = 0; i < 6; ++i) {
      EXPECT_LT(std::abs(error[i]), 4.5 * std::sqrt(found.covariance(i, i))) << isGrid << ' ' << i;
    }
    EXPECT_LT(std::sqrt(found.covariance(3, 3)), 0.001);
    EXPECT_LT(found.sigma, 0.004) << isGrid;
  }
}

/// Cells without a point, as a scan's background, are no more of the cloud than deleted ones.
TEST_F(RegisterLarge, CountPointsAndNotCellsWithoutOne) {
  cv::Matx44d const truth = motionAbout(middle, {0.3, -0.2, 0.4}, {0.2, -0.1, 0.15});
  constexpr int large = 330; // of which 49 500 have points
  cv::Mat_<cv::Vec3f> target = view(waves, large, 0.0, 0.0, 0.02, 1);
  cv::Mat_<cv::Vec3f> source = moveAll(truth.inv(), view(waves, large, 0.037, 0.021, 0.02, 2));
  cv::Range const behind(150, large);
  target.colRange(behind) = cv::Vec3f::all(std::numeric_limits<float>::quiet_NaN());
  source.colRange(behind) = cv::Vec3f::all(std::numeric_limits<float>::quiet_NaN());
  for (bool const isGrid : {true, false}) {
    PointCloud const a(source, isGrid);
    PointCloud const b(target, isGrid);
    PointCloud c(source, isGrid);
    PointCloud d(target, isGrid);
    c.state().colRange(behind) = 1;
    d.state().colRange(behind) = 1;
    Registration const found = registerClouds(a, b);
    Registration const deleted = registerClouds(c, d);
    EXPECT_EQ(found.targetFromSource, deleted.targetFromSource) << isGrid;
    EXPECT_EQ(found.covariance, deleted.covariance) << isGrid;
    EXPECT_EQ(found.matches, deleted.matches) << isGrid;
    EXPECT_EQ(found.noise, deleted.noise) << isGrid;
  }
}

TEST_F(RegisterLarge, GiveTheSameBitsWithAnyThreadsAndInUnitsOfTwo) {
  cv::Matx44d const truth = motionAbout(middle, {0.3, -0.2, 0.4}, {0.2, -0.1, 0.15});
  cv::Mat_<cv::Vec3f> const target = view(waves, side, 0.0, 0.0, 0.02, 1);
  cv::Mat_<cv::Vec3f> const source = moveAll(truth.inv(), view(waves, side, 0.037, 0.021, 0.02, 2));
  cv::Mat_<cv::Vec3f> const halfTarget(target * 0.5F);
  cv::Mat_<cv::Vec3f> const halfSource(source * 0.5F);
  for (bool const isGrid : {true, false}) {
    cv::setNumThreads(1);
    Registration const one = registerClouds(PointCloud(source, isGrid), PointCloud(target, isGrid));
    cv::setNumThreads(3);
    Registration const three = registerClouds(PointCloud(source, isGrid), PointCloud(target, isGrid));
    Registration const half = registerClouds(PointCloud(halfSource, isGrid), PointCloud(halfTarget, isGrid));
    cv::setNumThreads(-1);
    EXPECT_EQ(one.targetFromSource, three.targetFromSource) << isGrid;
    EXPECT_EQ(one.covariance, three.covariance) << isGrid;
    EXPECT_EQ(one.sigma, 2.0 * half.sigma) << isGrid;
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(one.targetFromSource(i, 0), half.targetFromSource(i, 0)) << isGrid;
      EXPECT_EQ(one.targetFromSource(i, 3), 2.0 * half.targetFromSource(i, 3)) << isGrid;
    }
  }
}

} // namespace
} // namespace vorn::mv
