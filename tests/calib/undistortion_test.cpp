// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/undistortion.hpp"

#include <cmath>
#include <cstring>
#include <utility>

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>

#include <vorn/core/exception.hpp>

#include "calib/undistorted_map.hpp"

namespace vorn::mv {
namespace {

/// A camera of 20 megapixels.
cv::Size const size(5472, 3648);
cv::Matx33d const K(5200, 0, 2740, 0, 5190, 1800, 0, 0, 1);

/// Lenses with every number of coefficients, all invertible over the whole image (rays up to 0.64).
std::vector<std::vector<double>> lenses() {
  return {{},
          {-0.25, 0.1, 0.001, -0.002},
          {-0.35, 0.15, 0.001, -0.002, -0.03},
          {0.4, 0.3, -0.001, 0.003, 0.1},
          {0.5, 0.1, 0.001, -0.002, 0.02, 0.9, 0.2, 0.01},
          {0.5, 0.1, 0.001, -0.002, 0.02, 0.9, 0.2, 0.01, 0.002, -0.001, 0.003, 0.001},
          {-0.2, 0.1, 0.001, -0.002, 0.02, 0, 0, 0, 0.002, -0.001, 0.003, 0.001, 0.05, -0.08}};
}

/// Where OpenCV images rays to.
std::vector<cv::Point2d> project(std::vector<cv::Point2d> const& rays, std::vector<double> const& D) {
  std::vector<cv::Point3d> points;
  for (cv::Point2d const& ray : rays) {
    points.emplace_back(ray.x, ray.y, 1);
  }
  std::vector<cv::Point2d> pixels;
  cv::projectPoints(points, cv::Vec3d(), cv::Vec3d(), K, D, pixels);
  return pixels;
}

TEST(Undistortion, InvertsTheLensExactly) {
  // A few roundings of numbers of size 1, in a well-conditioned inverse.
  constexpr double rounding = 2e-14;
  for (auto const& D : lenses()) {
    std::vector<cv::Point2d> rays;
    for (double y = -0.36; y < 0.37; y += 0.03) {
      for (double x = -0.53; x < 0.54; x += 0.03) {
        rays.emplace_back(x, y);
      }
    }
    auto const pixels = project(rays, D);
    Undistortion const undistortion{cv::Mat(K), cv::Mat(D)};
    for (std::size_t i = 0; i < rays.size(); ++i) {
      double x = pixels[i].x;
      double y = pixels[i].y;
      undistortion.toRays(&x, &y, 1);
      ASSERT_LT(cv::norm(cv::Point2d(x, y) - rays[i]), rounding)
          << D.size() << " coefficients at " << rays[i];
    }
  }
}

TEST(Undistortion, TheMapProjectsBackToEveryPixel) {
  // A ray's float has 24 bits: at 5200 pixels of focal length 2e-4 pixels.
  constexpr double floatRounding = 3e-4;
  cv::Size const odd(333, 70);
  for (auto const& D : lenses()) {
    cv::Mat_<cv::Vec2f> const map = undistortedMap(cv::Mat(K), cv::Mat(D), odd);
    ASSERT_EQ(map.size(), odd);
    std::vector<cv::Point2d> rays;
    for (cv::Vec2f const& ray : map) {
      rays.emplace_back(ray[0], ray[1]);
    }
    auto const pixels = project(rays, D);
    for (int i = 0; i < static_cast<int>(pixels.size()); ++i) {
      cv::Point2d const pixel(i % odd.width, i / odd.width);
      ASSERT_LT(cv::norm(pixels[static_cast<std::size_t>(i)] - pixel), floatRounding) << pixel;
    }
  }
}

TEST(Undistortion, AgreesWithOpenCVIteratedToConvergence) {
  std::vector<double> const coefficients = lenses()[2];
  cv::Mat const D(coefficients);
  std::vector<cv::Point2f> const pixels{{0, 0}, {5471, 3647}, {2740, 1800}, {100.25F, 3000.75F}};
  std::vector<cv::Point2d> reference;
  cv::undistortPoints(std::vector<cv::Point2d>(pixels.begin(), pixels.end()), reference, K, D, {}, {},
                      cv::TermCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 1000, 1e-13));
  auto const rays = undistorted(cv::Mat(K), D, pixels);
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    EXPECT_LT(cv::norm(rays[i] - reference[i]), 1e-12);
  }
}

TEST(Undistortion, GivesNoRayBeyondTheFold) {
  // r - 0.4 r^3 grows up to r = 0.913 and reaches 0.609 there.
  std::vector<double> const D{-0.4, 0, 0, 0, 0};
  double const foldRadius = std::sqrt(1 / 1.2);
  double const foldPixel = 5200 * (foldRadius - 0.4 * std::pow(foldRadius, 3));
  auto const along = [&](double pixels) { return cv::Point2f(static_cast<float>(2740 + pixels), 1800); };
  for (double inside : {3.0, 5.0, 50.0}) { // Newton's method is slow close to the fold
    auto const ray = undistorted(cv::Mat(K), cv::Mat(D), {along(foldPixel - inside)})[0];
    EXPECT_LT(std::abs(project({ray}, D)[0].x - along(foldPixel - inside).x), 1e-9);
    EXPECT_LT(ray.x, foldRadius);
  }
  for (double outside : {1.0, 5.0, 3000.0}) {
    auto const ray = undistorted(cv::Mat(K), cv::Mat(D), {along(foldPixel + outside)})[0];
    EXPECT_TRUE(std::isnan(ray.x) && std::isnan(ray.y));
  }
  // Close to the fold of a lens that is not symmetric.
  std::vector<double> const skewed{-0.4, 0, 0.003, -0.003, 0};
  cv::Point2d const ray(0.61, 0.62);
  Undistortion const undistortion{cv::Mat(K), cv::Mat(skewed)};
  cv::Point2d found = project({ray}, skewed)[0];
  undistortion.toRays(&found.x, &found.y, 1);
  EXPECT_LT(cv::norm(found - ray), 1e-12);
  // Far closer to the middle, as where a long lens folds: at 0.577.
  std::vector<double> const strong{-1, 0, 0, 0, 0};
  for (double x : {0.3, 0.5, 0.57, 0.575}) {
    cv::Point2f const pixel(project({{x, 0}}, strong)[0]);
    auto const near = undistorted(cv::Mat(K), cv::Mat(strong), {pixel})[0];
    EXPECT_LT(std::abs(project({near}, strong)[0].x - pixel.x), 1e-9) << x;
    EXPECT_LT(near.x, std::sqrt(1 / 3.0));
  }
  // This one turns round at 0.93, where it reaches 0.55, and grows again from 1.24 on: a ray there is no
  // answer.
  std::vector<double> const wavy{-0.6, 0.15, 0, 0, 0};
  EXPECT_TRUE(std::isnan(undistorted(cv::Mat(K), cv::Mat(wavy), {along(5200 * 0.6)})[0].x));
  EXPECT_TRUE(std::isnan(undistorted(cv::Mat(K), cv::Mat(D), {{NAN, 5}})[0].x));
}

TEST(Undistortion, IsTheSameForAnyNumberOfThreads) {
  std::vector<double> const coefficients = lenses()[3];
  cv::Mat const D(coefficients);
  int const threads = cv::getNumThreads();
  cv::setNumThreads(1);
  cv::Mat const one = undistortedMap(cv::Mat(K), D, {301, 101});
  cv::setNumThreads(3);
  cv::Mat const three = undistortedMap(cv::Mat(K), D, {301, 101});
  cv::setNumThreads(threads);
  EXPECT_EQ(std::memcmp(one.data, three.data, one.total() * one.elemSize()), 0);
}

TEST(Undistortion, RefusesMatricesOfOtherSizes) {
  cv::Mat const good(K);
  EXPECT_THROW(undistortedMap(cv::Mat(), cv::Mat(), size), Exception);
  EXPECT_THROW(undistortedMap(cv::Mat::eye(4, 4, CV_64F), cv::Mat(), size), Exception);
  EXPECT_THROW(undistortedMap(cv::Mat::zeros(3, 3, CV_64F), cv::Mat(), size), Exception);
  EXPECT_THROW(undistortedMap(good, cv::Mat::zeros(1, 6, CV_64F), size), Exception);
  EXPECT_THROW(undistortedMap(good, cv::Mat::zeros(2, 2, CV_64F), size), Exception);
  EXPECT_TRUE(undistortedMap(good, cv::Mat::zeros(5, 1, CV_32F), {}).empty());
}

} // namespace
} // namespace vorn::mv
