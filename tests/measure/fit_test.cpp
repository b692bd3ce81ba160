// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/measure/fit.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "measure/chance_support.hpp"
#include "support/expect_error.hpp"
#include "support/seed.hpp"

namespace vorn::mv {
namespace {

using Points = std::vector<cv::Point3f>;
using test::expectError;

constexpr double infinity = std::numeric_limits<double>::infinity();
/// The share of a normal distribution's band in sigmas: 2 * 2.9677 for 99.7 %, 2 * 1.2816 for 80 %.
constexpr double band997 = 5.9355;
constexpr double band80 = 2.5631;

class Noise {
public:
  double operator()(double sigma) { return sigma * normal_(random_); }
  double uniform(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random_);
  }

private:
  std::mt19937 random_{test::seed()};
  std::normal_distribution<double> normal_;
};

/// Points evenly on a cap about -z, as a camera sees it, with radial noise.
Points cap(cv::Vec3d const& centre, double radius, double widest, int count, double sigma, Noise& noise) {
  Points points;
  for (int i = 0; i < count; ++i) {
    double const z = 1.0 - noise.uniform(0.0, 1.0 - std::cos(widest));
    double const turn = noise.uniform(0.0, 2.0 * CV_PI);
    double const out = std::sqrt(1.0 - z * z);
    cv::Vec3d const direction(out * std::cos(turn), out * std::sin(turn), -z);
    points.emplace_back(cv::Point3d(centre + direction * (radius + noise(sigma))));
  }
  return points;
}

cv::Vec3d const tilted = cv::normalize(cv::Vec3d(0.2, -0.3, -1.0));
cv::Vec3d const across = cv::normalize(tilted.cross(cv::Vec3d(1, 0, 0)));
cv::Vec3d const middle(5, 5, 550);

/// Points on a rectangle of 160 x 60 with noise along its normal.
Points rectangle(int count, double sigma, Noise& noise) {
  Points points;
  for (int i = 0; i < count; ++i) {
    points.emplace_back(cv::Point3d(middle + across * noise.uniform(-80.0, 80.0) +
                                    tilted.cross(across) * noise.uniform(-30.0, 30.0) +
                                    tilted * noise(sigma)));
  }
  return points;
}

TEST(FitSphere, RecoversACapFarFromTheOrigin) {
  Noise noise;
  cv::Vec3d const centre(-62, -6, 497);
  auto const fit = fitSphere(cap(centre, 38.0, 1.1, 5000, 0.0, noise));
  constexpr double floatRounding = 5e-5;
  EXPECT_LT(cv::norm(cv::Vec3d(cv::Point3d(fit.feature.centre())) - centre), floatRounding);
  EXPECT_NEAR(fit.feature.radius(), 38.0, floatRounding);
  EXPECT_LT(fit.form, 2.0 * floatRounding);
  EXPECT_EQ(fit.inliers.size(), 5000U);
}

TEST(FitSphere, OfASmallCapIsGeometric) {
  // A cap of 6 degrees: the least algebraic distance, as a reference solves it below, comes out 9 % small.
  Noise noise;
  cv::Vec3d const centre(0, 0, 400);
  constexpr double radius = 50.0;
  Points const points = cap(centre, radius, 6.0 * CV_PI / 180.0, 20000, 0.03, noise);
  cv::Mat system(static_cast<int>(points.size()), 4, CV_64F);
  cv::Mat right(static_cast<int>(points.size()), 1, CV_64F);
  cv::Vec3d const top(0, 0, 350);
  for (int i = 0; i < system.rows; ++i) {
    cv::Vec3d const p = cv::Vec3d(cv::Point3d(points[static_cast<std::size_t>(i)])) - top;
    cv::Mat(cv::Matx14d(2 * p[0], 2 * p[1], 2 * p[2], 1)).copyTo(system.row(i));
    right.at<double>(i) = p.dot(p);
  }
  cv::Vec4d solution;
  cv::solve(system, right, solution, cv::DECOMP_QR);
  double const algebraic = std::sqrt(
      solution[3] +
      cv::Vec3d(solution[0], solution[1], solution[2]).dot({solution[0], solution[1], solution[2]}));

  auto const fit = fitSphere(points);
  double const sigma = std::sqrt(fit.covariance.at<double>(3, 3));
  EXPECT_NEAR(fit.feature.radius(), radius, 4.0 * sigma);
  EXPECT_GT(std::abs(algebraic - radius), 8.0 * sigma) << "the case tells the two fits apart";
}

TEST(FitSphere, FormErrorIsTheBandOfItsShare) {
  Noise noise;
  constexpr double sigma = 0.02;
  Points const points = cap({-62, -6, 497}, 38.0, 1.1, 200000, sigma, noise);
  // The quantile's own scatter is 0.6 % here; whole tails instead of halves would be 7 % narrower.
  EXPECT_NEAR(fitSphere(points).form, band997 * sigma, 0.02 * band997 * sigma);
  FitSettings settings;
  settings.formShare = 0.8;
  EXPECT_NEAR(fitSphere(points, settings).form, band80 * sigma, 0.02 * band80 * sigma);
}

TEST(FitPlane, FormErrorOfKnownResiduals) {
  // Ten levels of a grid that stands symmetric about z = 100: the band of eight of ten levels is 0.7 high.
  Points points;
  for (int level = 0; level < 10; ++level) {
    for (int turn = 0; turn < 100; ++turn) {
      double const angle = 2.0 * CV_PI * turn / 100.0;
      points.emplace_back(static_cast<float>(20 * std::cos(angle)), static_cast<float>(20 * std::sin(angle)),
                          static_cast<float>(100.0 + 0.1 * (level - 4.5)));
    }
  }
  FitSettings settings;
  settings.formShare = 0.78;
  auto const fit = fitPlane(points, settings);
  EXPECT_NEAR(fit.form, 0.7, 1e-4);
  EXPECT_NEAR(fit.feature.normal()[2], -1.0, 1e-6) << "towards the origin";
  EXPECT_NEAR(fit.residuals.front(), 0.45, 1e-4) << "nearer to the origin: on the normal's side";
  settings.formShare = 1.0;
  EXPECT_NEAR(fitPlane(points, settings).form, 0.9, 1e-4);
}

TEST(FitPlane, FormErrorIsTheBandOfItsShare) {
  Noise noise;
  constexpr double sigma = 0.03;
  auto const fit = fitPlane(rectangle(200000, sigma, noise));
  EXPECT_NEAR(fit.form, band997 * sigma, 0.02 * band997 * sigma);
  EXPECT_NEAR(std::abs(cv::Vec3d(fit.feature.normal()).dot(tilted)), 1.0, 1e-7);
}

/// Covariance of rows, and of what each row's fit said of itself.
struct MonteCarlo {
  cv::Mat samples;
  cv::Mat stated;

  void add(cv::Mat const& row, cv::Mat const& covariance) {
    samples.push_back(row);
    stated = stated.empty() ? covariance.clone() : cv::Mat(stated + covariance);
  }
  /// The standard deviation of a combination of the numbers, seen and stated.
  std::pair<double, double> along(cv::Mat const& weights) const {
    cv::Mat const values = samples * weights;
    cv::Scalar mean, deviation;
    cv::meanStdDev(values, mean, deviation);
    double const variance = cv::Mat(weights.t() * stated * weights).at<double>(0) / samples.rows;
    return {deviation[0], std::sqrt(variance)};
  }
};

/// A standard deviation of 1000 samples is itself good to 2.2 %: 4 sigma.
constexpr double sampling = 0.09;
constexpr int trials = 1000;

TEST(FitSphere, CovarianceIsThatOfRepeatedMeasurements) {
  Noise noise;
  MonteCarlo runs;
  for (int i = 0; i < trials; ++i) {
    auto const fit = fitSphere(cap({10, -20, 300}, 25.0, 0.5, 150, 0.2, noise));
    auto const c = fit.feature.centre();
    runs.add((cv::Mat_<double>(1, 4) << c.x - 10, c.y + 20, c.z - 300, fit.feature.radius() - 25),
             fit.covariance);
  }
  // The axes, the radius, and the top of the cap: there centre and radius cancel by their covariance.
  for (cv::Vec4d const& weights : {cv::Vec4d(1, 0, 0, 0), cv::Vec4d(0, 1, 0, 0), cv::Vec4d(0, 0, 1, 0),
                                   cv::Vec4d(0, 0, 0, 1), cv::Vec4d(0, 0, 1, -1)}) {
    auto const [seen, stated] = runs.along(cv::Mat(weights));
    EXPECT_NEAR(stated, seen, sampling * seen) << weights;
  }
}

TEST(FitPlane, CovarianceIsThatOfRepeatedMeasurements) {
  Noise noise;
  MonteCarlo runs;
  cv::Vec3d const other = tilted.cross(across);
  for (int i = 0; i < trials; ++i) {
    auto const fit = fitPlane(rectangle(60, 0.5, noise));
    cv::Vec3d const n = fit.feature.normal();
    // The plane's height at the middle, and its tilts.
    double const height = n.dot(cv::Vec3d(cv::Point3d(fit.feature.point())) - middle);
    cv::Matx16d const towards(tilted[0], tilted[1], tilted[2], 0, 0, 0);
    runs.add((cv::Mat_<double>(1, 6) << height * n[0], height * n[1], height * n[2], n[0], n[1], n[2]),
             fit.covariance);
  }
  for (cv::Vec3d const& direction : {across, other}) {
    auto const [seen, stated] =
        runs.along((cv::Mat_<double>(6, 1) << 0, 0, 0, direction[0], direction[1], direction[2]));
    EXPECT_NEAR(stated, seen, sampling * seen);
  }
  cv::Mat const meanCovariance = runs.stated / trials;
  cv::Vec3d const atPoint = cv::Mat(meanCovariance(cv::Rect(0, 0, 3, 3)) * cv::Mat(tilted));
  EXPECT_NEAR(std::sqrt(tilted.dot(atPoint)), 0.5 / std::sqrt(60.0), 0.02 * 0.5 / std::sqrt(60.0));
}

TEST(FitSphere, OutliersTakeNoPart) {
  Noise noise;
  cv::Vec3d const centre(10, -20, 300);
  Points points = cap(centre, 25.0, 1.0, 3000, 0.02, noise);
  for (int i = 0; i < 2000; ++i) { // the table it stands on, and dust
    points.emplace_back(static_cast<float>(noise.uniform(-60, 60)),
                        static_cast<float>(noise.uniform(-60, 60)),
                        static_cast<float>(i % 2 == 0 ? 320.0 : noise.uniform(200, 320)));
  }
  auto const fit = fitSphere(points);
  EXPECT_LT(cv::norm(cv::Vec3d(cv::Point3d(fit.feature.centre())) - centre), 0.01);
  EXPECT_NEAR(static_cast<double>(fit.inliers.size()), 3000, 10);
  // The quantile of 3000 points scatters by 4 %.
  EXPECT_NEAR(fit.form, band997 * 0.02, 0.16 * band997 * 0.02);
  EXPECT_EQ(fit.residuals.size(), points.size());
  EXPECT_NEAR(fit.residuals[4000], cv::norm(cv::Vec3d(cv::Point3d(points[4000])) - centre) - 25.0, 0.02);

  FitSettings all;
  all.outlierSigmas = infinity;
  EXPECT_EQ(fitSphere(points, all).inliers.size(), points.size());
}

TEST(FitPlane, AGivenBoundFindsAMinority) {
  Noise noise;
  Points points = rectangle(3000, 0.05, noise);
  for (int i = 0; i < 5000; ++i) {
    points.emplace_back(static_cast<float>(noise.uniform(-80, 80)),
                        static_cast<float>(noise.uniform(-80, 80)),
                        static_cast<float>(noise.uniform(400, 700)));
  }
  FitSettings settings;
  settings.outlierDistance = 0.25;
  auto const fit = fitPlane(points, settings);
  EXPECT_GT(std::abs(cv::Vec3d(fit.feature.normal()).dot(tilted)), 1.0 - 1e-7);
  EXPECT_NEAR(static_cast<double>(fit.inliers.size()), 3000, 40);
}

/// Points scattered evenly through a cube of 120.
void scatter(Points& points, int count, Noise& noise) {
  for (int i = 0; i < count; ++i) {
    points.emplace_back(cv::Point3d(noise.uniform(-50, 70), noise.uniform(-40, 80), noise.uniform(440, 560)));
  }
}

TEST(FitSphere, AGivenBoundFindsASmallBall) {
  cv::Vec3d const centre(10, 20, 500);
  constexpr double radius = 12.7;
  FitSettings settings;
  settings.outlierDistance = 0.2;
  auto const expectBall = [&](Points const& points) {
    auto const fit = fitSphere(points, settings);
    // Points by chance in the shell draw it by their scatter: 0.2 / sqrt(3) of up to a tenth of 300.
    EXPECT_NEAR(fit.feature.radius(), radius, 0.05) << points.size();
    EXPECT_LT(cv::norm(cv::Vec3d(cv::Point3d(fit.feature.centre())) - centre), 0.1) << points.size();
    EXPECT_NEAR(static_cast<double>(fit.inliers.size()), 300.0, 30.0) << points.size();
  };
  for (int const others : {310, 1200, 3000}) {
    Noise noise;
    Points clutter = cap(centre, radius, 1.77, 300, 0.02, noise);
    Points table = clutter;
    scatter(clutter, others, noise);
    expectBall(clutter);
    for (int i = 0; i < others; ++i) {
      table.emplace_back(
          cv::Point3d(noise.uniform(-50, 70), noise.uniform(-40, 80), 500.0 + radius + noise(0.02)));
    }
    expectBall(table);
    scatter(table, others, noise);
    expectBall(table);
  }
}

TEST(FitSphere, AGivenBoundFindsAFlatCap) {
  // Its height of 0.27 is less than the bounds on both sides of a plane.
  Noise noise;
  Points points = cap({0, 0, 400}, 50.0, 6.0 * CV_PI / 180.0, 2000, 0.003, noise);
  Points apart;
  scatter(apart, 2500, noise);
  for (cv::Point3f const& p : apart) {
    points.emplace_back(p.x, p.y, p.z + 300.0F);
  }
  FitSettings settings;
  settings.outlierDistance = 0.2;
  auto const fit = fitSphere(points, settings);
  EXPECT_NEAR(fit.feature.radius(), 50.0, 4.0 * std::sqrt(fit.covariance.at<double>(3, 3)));
  EXPECT_EQ(fit.inliers.back(), 1999U);
}

TEST(FitPlane, AGivenBoundFindsAPlaneAmongManyPoints) {
  for (int const others : {700, 1500, 3000, 6000}) {
    Noise noise;
    Points points;
    for (int i = 0; i < 300; ++i) {
      points.emplace_back(cv::Point3d(noise.uniform(-50, 70), noise.uniform(-40, 80), 500.0 + noise(0.02)));
    }
    scatter(points, others, noise);
    FitSettings settings;
    settings.outlierDistance = 0.1;
    auto const fit = fitPlane(points, settings);
    EXPECT_NEAR(fit.feature.normal()[2], -1.0, 1e-6) << others;
    EXPECT_NEAR(fit.feature.point().z, 500.0, 0.02) << others;
    EXPECT_GE(fit.inliers.size(), 295U) << others;
  }
}

TEST(Fit, OfScatteredPointsIsRefused) {
  Noise noise;
  FitSettings settings;
  settings.outlierDistance = 0.2;
  for (int const count : {30, 300, 3000}) {
    Points points;
    scatter(points, count, noise);
    expectError([&] { fitSphere(points, settings); }, "by chance");
    expectError([&] { fitPlane(points, settings); }, "by chance");
  }
}

TEST(Fit, TheShareNearAShapeIsThatOfItsVolume) {
  // The exact share of a cube of side 120 that a shell takes which lies in it, and a plane across.
  FilledBox const box{{-50, -40, 440}, {120, 120, 120}};
  double const shell = 4.0 / 3.0 * CV_PI * (std::pow(30.2, 3) - std::pow(29.8, 3)) / std::pow(120.0, 3);
  EXPECT_NEAR(shareNear(SphereShape{{10, 20, 500}, 30.0}, box, 0.2), shell, 0.05 * shell);
  EXPECT_NEAR(shareNear(PlaneShape{{10, 20, 500}, {0, 0, 1}}, box, 0.2), 0.4 / 120.0, 1e-9);
  cv::Vec3d const diagonal = cv::normalize(cv::Vec3d(1, 1, 0));
  EXPECT_NEAR(shareNear(PlaneShape{{10, 20, 500}, diagonal}, box, 0.2), 0.4 * std::sqrt(2.0) / 120.0, 1e-5);
  // A wide sphere is a plane here.
  EXPECT_NEAR(shareNear(SphereShape{{10, 20, 1e6 + 500}, 1e6}, box, 0.2), 0.4 / 120.0, 1e-4);
}

TEST(FitPlane, OfACloudTakesPresentFinitePoints) {
  cv::Mat_<cv::Vec3f> grid(20, 30);
  for (int y = 0; y < grid.rows; ++y) {
    for (int x = 0; x < grid.cols; ++x) {
      grid(y, x) = cv::Vec3f(static_cast<float>(x), static_cast<float>(y), 200.0F);
    }
  }
  grid(3, 4) = cv::Vec3f::all(std::numeric_limits<float>::quiet_NaN());
  grid(7, 8)[2] = 100.0F;
  PointCloud cloud(grid, true);
  cloud.state()(5, 6) = 1;
  auto const fit = fitPlane(cloud);
  EXPECT_EQ(fit.inliers.size(), 20U * 30U - 3U);
  EXPECT_EQ(fit.inliers[3 * 30 + 4], 3U * 30U + 5U) << "cells row by row, the one without a point left out";
  EXPECT_TRUE(std::isnan(fit.residuals[3 * 30 + 4]));
  EXPECT_TRUE(std::isnan(fit.residuals[5 * 30 + 6]));
  EXPECT_NEAR(fit.residuals[7 * 30 + 8], 100.0, 1e-3) << "an outlier has its residual too";
}

TEST(Fit, IsTheSameAgain) {
  Noise noise;
  Points points = cap({10, -20, 300}, 25.0, 1.0, 60000, 0.02, noise);
  points.resize(80000, cv::Point3f(1, 2, 3));
  auto const first = fitSphere(points);
  auto const again = fitSphere(points);
  EXPECT_EQ(first.feature.centre(), again.feature.centre());
  EXPECT_EQ(first.inliers, again.inliers);
  EXPECT_NEAR(static_cast<double>(first.inliers.size()), 60000, 5);
}

TEST(Fit, NamesWhatIsWrongWithThePoints) {
  Noise noise;
  expectError([] { fitSphere(Points(3)); }, "4 points or more, there are 3");
  expectError([] { fitPlane(Points(2)); }, "3 points or more, there are 2");
  expectError([] { fitPlane(PointCloud()); }, "there are 0");
  expectError([] { fitSphere(Points(50, {1, 2, 3})); }, "coincide");
  expectError([] { fitPlane(Points(50, {1, 2, 3})); }, "coincide");
  Points line, plane;
  for (int i = 0; i < 100; ++i) {
    line.emplace_back(static_cast<float>(i), 2.0F * static_cast<float>(i), 5.0F);
    plane.emplace_back(static_cast<float>(i % 10), static_cast<float>(i / 10), 5.0F);
  }
  expectError([&] { fitSphere(line); }, "one line");
  expectError([&] { fitPlane(line); }, "one line");
  expectError([&] { fitSphere(plane); }, "one plane");
  EXPECT_NO_THROW(fitPlane(plane));
  expectError([&] { fitSphere(rectangle(500, 0.1, noise)); }, "one plane to within their scatter of 0.");
  plane[17].y = std::numeric_limits<float>::quiet_NaN();
  expectError([&] { fitPlane(plane); }, "Point 17 is not finite");
  plane[17].y = std::numeric_limits<float>::infinity();
  expectError([&] { fitSphere(plane); }, "Point 17 is not finite");
}

TEST(Fit, NamesTheSettingOutOfRange) {
  Points const points(10);
  auto const with = [&](auto change) {
    FitSettings settings;
    change(settings);
    fitPlane(points, settings);
  };
  expectError([&] { with([](FitSettings& s) { s.outlierSigmas = 0.0; }); }, "outlierSigmas");
  expectError([&] { with([](FitSettings& s) { s.outlierDistance = -1.0; }); }, "outlierDistance");
  expectError([&] { with([](FitSettings& s) { s.formShare = 1.1; }); }, "formShare");
}

TEST(Fit, WithoutRedundancyHasNoCovariance) {
  auto const fit = fitSphere(Points{{1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, 0, 1}});
  EXPECT_NEAR(fit.feature.radius(), 1.0, 1e-6);
  EXPECT_TRUE(std::isnan(fit.covariance.at<double>(0, 0)));
}

} // namespace
} // namespace vorn::mv
