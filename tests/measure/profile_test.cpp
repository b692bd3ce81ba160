// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/measure/profile.hpp>

#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

using test::expectError;

/// A blurred step whose edge runs through a point across a direction, sampled at pixel centres, with noise.
cv::Mat_<float> step(cv::Point2d through, double angle, double blur, double contrast, double noise) {
  cv::Mat_<float> image(60, 80);
  cv::Point2d const direction(std::cos(angle), std::sin(angle));
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      double const s = (cv::Point2d(x, y) - through).dot(direction);
      double const share = 0.5 * std::erfc(-s / blur / std::sqrt(2.0));
      image(y, x) = static_cast<float>(50.0 + contrast * share + cv::theRNG().gaussian(noise));
    }
  }
  return image;
}

TEST(Profile, ReadsACubicSurfaceExactlyBetweenPixels) {
  // Cubic convolution keeps polynomials of second degree.
  cv::Mat_<double> image(40, 50);
  auto const surface = [](double x, double y) {
    return 3.0 + 0.5 * x - 0.25 * y + 0.02 * x * x - 0.03 * x * y;
  };
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      image(y, x) = surface(x, y);
    }
  }
  ProfileSettings settings;
  settings.step = 0.7;
  Profile const profile = calcProfile(image, {{5.3, 6.1}, {40.2, 30.7}, {10.0, 35.0}}, settings);
  ASSERT_GT(profile.values.size(), 80U);
  for (std::size_t i = 0; i < profile.values.size(); ++i) {
    EXPECT_NEAR(profile.values[i], surface(profile.points[i].x, profile.points[i].y), 1e-9);
    EXPECT_NEAR(profile.positions[i], 0.7 * static_cast<double>(i), 1e-9);
  }
}

TEST(Profile, MeansOverItsWidth) {
  cv::Mat_<uchar> image(20, 30);
  for (int y = 0; y < image.rows; ++y) {
    image.row(y).setTo(10 * y);
  }
  ProfileSettings settings;
  settings.width = 5;
  settings.step = 1.0;
  EXPECT_NEAR(calcProfile(image, {{3, 8}, {20, 8}}, settings).values[4], 80.0, 1e-9);
  cv::randu(image, 0, 256);
  double const mean = cv::mean(image(cv::Rect(7, 6, 1, 5)))[0];
  EXPECT_NEAR(calcProfile(image, {{3, 8}, {20, 8}}, settings).values[4], mean, 1e-9);
}

TEST(Profile, FindsAnEdgeWithPositionDirectionContrastAndBlur) {
  double const angle = 0.3;
  cv::Point2d const direction(std::cos(angle), std::sin(angle));
  cv::Point2d const through(38.4, 29.7);
  for (double const contrast : {120.0, -40.0}) {
    Profile const profile = calcProfile(step(through, angle, 1.3, contrast, 0.0),
                                        {through - direction * 20.0, through + direction * 20.0});
    ASSERT_EQ(profile.edges.size(), 1U);
    ProfileEdge const& edge = profile.edges[0];
    EXPECT_NEAR(edge.position, 20.0, 0.005);
    EXPECT_NEAR(cv::norm(edge.point - through), 0.0, 0.005);
    EXPECT_NEAR(edge.direction.dot(direction), 1.0, 1e-9);
    EXPECT_NEAR(edge.contrast, contrast, 0.01 * std::abs(contrast));
    EXPECT_NEAR(edge.blur, 1.3, 0.03);
  }
}

TEST(Profile, AnEdgesSigmaIsItsScatterAndNearTheBound) {
  struct Case {
    double angle, blur, step;
    int width;
    cv::Point2d through;
  };
  for (Case const& one : {Case{0.0, 1.0, 1.0, 1, {40.3, 30.0}}, Case{0.0, 1.0, 0.5, 1, {40.3, 30.0}},
                          Case{0.4, 1.5, 0.5, 5, {40.3, 29.6}}, Case{1.1, 0.8, 0.5, 3, {40.3, 29.6}}}) {
    constexpr double contrast = 100.0;
    constexpr double noise = 2.0;
    constexpr int trials = 400;
    cv::Point2d const direction(std::cos(one.angle), std::sin(one.angle));
    ProfileSettings settings;
    settings.width = one.width;
    settings.step = one.step;
    double squares = 0.0;
    double stated = 0.0;
    for (int i = 0; i < trials; ++i) {
      Profile const profile =
          calcProfile(step(one.through, one.angle, one.blur, contrast, noise),
                      {one.through - direction * 15.0, one.through + direction * 15.0}, settings);
      ASSERT_EQ(profile.edges.size(), 1U);
      squares += std::pow(profile.edges[0].position - 15.0, 2);
      stated += profile.edges[0].sigma / trials;
    }
    double const scatter = std::sqrt(squares / trials);
    // The information of independent pixels about the place of a known Gaussian edge: sum of slope^2 over
    // noise^2, which is width * contrast^2 / (2 sqrt(pi) blur noise^2).
    double const bound = noise / contrast * std::sqrt(2.0 * std::sqrt(CV_PI) * one.blur / one.width);
    constexpr double sampling = 0.11; // 400 trials tell a standard deviation to 3.5 %
    EXPECT_NEAR(stated, scatter, sampling * scatter) << one.angle << ' ' << one.step;
    EXPECT_LT(scatter, (1.1 + sampling) * bound) << one.angle << ' ' << one.step;
  }
}

TEST(Profile, FindsBothSidesOfABarAndNothingInNoise) {
  cv::Mat const image = step({30, 30}, 0.0, 1.0, 80.0, 1.0) - step({41, 30}, 0.0, 1.0, 80.0, 1.0) + 60.0;
  ProfileSettings settings;
  settings.width = 3;
  Profile const profile = calcProfile(image, {{5, 30}, {75, 30}}, settings);
  ASSERT_EQ(profile.edges.size(), 2U);
  EXPECT_NEAR(profile.edges[0].point.x, 30.0, 0.1);
  EXPECT_NEAR(profile.edges[1].point.x, 41.0, 0.1);
  EXPECT_GT(profile.edges[0].contrast, 0.0);
  EXPECT_LT(profile.edges[1].contrast, 0.0);
  EXPECT_NEAR(profile.noise, std::sqrt(2.0 / 3.0), 0.3);

  std::size_t found = 0;
  for (int i = 0; i < 50; ++i) {
    found += calcProfile(step({200, 30}, 0.0, 1.0, 80.0, 1.0), {{5, 30}, {75, 30}}).edges.size();
  }
  EXPECT_LT(found, 5U);
}

TEST(Profile, FollowsAnArc) {
  cv::Mat_<float> image(100, 100);
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      image(y, x) = x < 50 ? 10.0F : 90.0F;
    }
  }
  auto const path = arcPath({49.5, 50}, 30.0, -180.0, 180.0);
  for (cv::Point2d const& p : path) {
    EXPECT_NEAR(cv::norm(p - cv::Point2d(49.5, 50)), 30.0, 1e-9);
  }
  Profile const profile = calcProfile(image, path);
  EXPECT_NEAR(profile.positions.back(), 2.0 * CV_PI * 30.0, 1.0);
  ASSERT_EQ(profile.edges.size(), 2U);
  EXPECT_NEAR(profile.edges[0].position, 0.25 * 2.0 * CV_PI * 30.0, 0.2) << "at the top, from dark to bright";
  EXPECT_GT(profile.edges[0].contrast, 70.0);
  EXPECT_NEAR(profile.edges[1].position, 0.75 * 2.0 * CV_PI * 30.0, 0.2);
}

TEST(Profile, OutsideTheImageHasNoValues) {
  Profile const profile = calcProfile(step({30, 30}, 0.0, 1.0, 80.0, 0.0), {{-20, 30}, {60, 30}});
  EXPECT_TRUE(std::isnan(profile.values.front()));
  ASSERT_EQ(profile.edges.size(), 1U);
  EXPECT_NEAR(profile.edges[0].point.x, 30.0, 0.01);
}

TEST(Profile, RefusesWhatItCannotRead) {
  cv::Mat const image = cv::Mat::zeros(20, 20, CV_8UC1);
  constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
  expectError([] { calcProfile(cv::Mat(), {{0, 0}, {5, 5}}); }, "empty");
  expectError([] { calcProfile(cv::Mat::zeros(5, 5, CV_8UC3), {{0, 0}, {5, 5}}); }, "not 3");
  expectError([&] { calcProfile(image, {{0, 0}}); }, "2 points or more, there are 1");
  expectError([&] { calcProfile(image, {{0, 0}, {notANumber, 1}}); }, "Point 1 of the path is not finite");
  expectError([&] { calcProfile(image, {{3, 3}, {3, 3}}); }, "all the same");
  expectError([&] { calcProfile(image, {{100, 100}, {200, 200}}); }, "outside the image of 20 x 20");
  ProfileSettings settings;
  settings.width = 0;
  expectError([&] { calcProfile(image, {{0, 0}, {5, 5}}, settings); }, "width must be 1.0");
  expectError([&] { arcPath({0, 0}, -1.0, 0, 90); }, "radius -1");
}

} // namespace
} // namespace vorn::mv
