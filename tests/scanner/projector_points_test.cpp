// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/sl/projector_points.hpp>

#include "support/expect_error.hpp"
#include "support/seed.hpp"

namespace vorn::test {
namespace {

constexpr int pitch = 36;

/// Decoded maps of a tilted plane seen through two lenses, and a grid of points on it.
struct Maps {
  cv::Mat columns = cv::Mat(300, 400, CV_32F);
  cv::Mat rows = cv::Mat(300, 400, CV_32F);
  std::vector<cv::Point2f> points;

  static cv::Point2d truth(double x, double y) {
    double const depth = 1.0 + 4e-4 * x - 3e-4 * y;
    cv::Point2d const p((80 + 0.45 * x + 0.02 * y) / depth, (60 - 0.03 * x + 0.47 * y) / depth);
    cv::Point2d const d = (p - cv::Point2d(150, 120)) * 1e-3;
    return p * (1.0 - 0.3 * d.dot(d));
  }

  explicit Maps(double noise) {
    cv::RNG random(seed());
    for (int y = 0; y < rows.rows; ++y) {
      for (int x = 0; x < rows.cols; ++x) {
        cv::Point2d const p = truth(x, y);
        columns.at<float>(y, x) = static_cast<float>(p.x + random.gaussian(noise));
        rows.at<float>(y, x) = static_cast<float>(p.y + random.gaussian(noise));
      }
    }
    for (int y = 30; y < 280; y += pitch) {
      for (int x = 30; x < 380; x += pitch) {
        points.emplace_back(static_cast<float>(x) + 0.37F, static_cast<float>(y) - 0.21F);
      }
    }
  }

  double rms(std::vector<cv::Point2f> const& found, std::vector<std::uint8_t> const& valid) const {
    double squares = 0;
    int count = 0;
    for (std::size_t i = 0; i < points.size(); ++i) {
      if (valid[i] != 0) {
        cv::Point2d const miss =
            cv::Point2d(found[i]) - truth(static_cast<double>(points[i].x), static_cast<double>(points[i].y));
        squares += 0.5 * miss.dot(miss);
        ++count;
      }
    }
    return std::sqrt(squares / std::max(count, 1));
  }
};

long countValid(std::vector<std::uint8_t> const& valid) {
  return std::count(valid.begin(), valid.end(), 1);
}

TEST(FindProjectorPoints, FollowsPerspectiveAndLenses) {
  Maps const maps(0);
  std::vector<cv::Point2f> found;
  std::vector<std::uint8_t> valid;
  mv::find_projector_points(maps.columns, maps.rows, maps.points, found, valid);
  EXPECT_EQ(countValid(valid), static_cast<long>(maps.points.size()));
  // Terms of the third degree and more over 18 pixels.
  EXPECT_LT(maps.rms(found, valid), 5e-4);
}

TEST(FindProjectorPoints, AveragesNoiseAndIgnoresOutliersAndHoles) {
  constexpr double noise = 0.05;
  Maps maps(noise);
  cv::RNG random(seed() + 1);
  for (int i = 0; i < 30000; ++i) { // a quarter of the pixels
    int const x = random.uniform(0, maps.rows.cols);
    int const y = random.uniform(0, maps.rows.rows);
    if (i % 3 == 0) {
      maps.columns.at<float>(y, x) += 4; // a stripe off
    } else if (i % 3 == 1) {
      maps.rows.at<float>(y, x) = static_cast<float>(random.uniform(0.0, 300.0));
    } else if (i % 30 == 2) {
      maps.columns.at<float>(y, x) = -1;
      maps.rows.at<float>(y, x) = std::numeric_limits<float>::quiet_NaN();
    }
  }
  std::vector<cv::Point2f> found;
  std::vector<std::uint8_t> valid;
  mv::find_projector_points(maps.columns, maps.rows, maps.points, found, valid);
  EXPECT_GE(countValid(valid), static_cast<long>(maps.points.size()) * 9 / 10);
  // 1000 pixels and six coefficients: the value in the middle has 2.25 times the variance of a mean; half as
  // much again for the pixels that are lost.
  double const bound = 1.5 * noise * std::sqrt(2.25 / (CV_PI * 0.25 * pitch * pitch));
  EXPECT_LT(maps.rms(found, valid), bound);
}

TEST(FindProjectorPoints, KnowsHowExactEachPointIs) {
  // Columns are noisier than rows, and more so between the dots, where the lower half decodes nothing at all.
  constexpr double noise = 0.02;
  double squares[2][2] = {};
  int counts[2] = {};
  for (int run = 0; run < 6; ++run) {
    Maps maps(noise);
    cv::RNG random(seed() + 7 + static_cast<std::uint64_t>(run));
    for (int y = 0; y < maps.rows.rows; ++y) {
      for (int x = 0; x < maps.rows.cols; ++x) {
        auto const isNear = [&](cv::Point2f const& p) {
          return std::hypot(static_cast<float>(x) - p.x, static_cast<float>(y) - p.y) < 0.3F * pitch;
        };
        bool const isDot = std::any_of(maps.points.begin(), maps.points.end(), isNear);
        maps.columns.at<float>(y, x) += static_cast<float>(random.gaussian(isDot ? noise : 5 * noise));
        maps.rows.at<float>(y, x) += static_cast<float>(random.gaussian(0.5 * noise));
        if (!isDot && y > 150) {
          maps.columns.at<float>(y, x) = -1;
        }
      }
    }
    std::vector<cv::Point2f> found;
    std::vector<cv::Point2f> sigmas;
    std::vector<std::uint8_t> valid;
    mv::find_projector_points(maps.columns, maps.rows, maps.points, found, sigmas, valid);
    for (std::size_t i = 0; i < found.size(); ++i) {
      ASSERT_EQ(valid[i], 1);
      cv::Point2d const miss = cv::Point2d(found[i]) - Maps::truth(static_cast<double>(maps.points[i].x),
                                                                   static_cast<double>(maps.points[i].y));
      std::size_t const half = maps.points[i].y > 160 ? 1 : 0;
      squares[half][0] += std::pow(miss.x / static_cast<double>(sigmas[i].x), 2);
      squares[half][1] += std::pow(miss.y / static_cast<double>(sigmas[i].y), 2);
      ++counts[half];
    }
  }
  for (std::size_t half : {0U, 1U}) {
    for (double sum : squares[half]) {
      EXPECT_NEAR(std::sqrt(sum / counts[half]), 1, 0.15) << half; // of some 180 points: 0.05 a deviation
    }
  }
}

TEST(FindProjectorPoints, RefusesDotsCutByTheEdgeOfTheLight) {
  Maps maps(0.02);
  // The dot at column 102.37 has a radius of 9 pixels.
  for (int const edge : {108, 102}) {
    maps.columns.colRange(edge, 400) = -1;
    maps.rows.colRange(edge, 400) = -1;
    std::vector<cv::Point2f> found;
    std::vector<std::uint8_t> valid;
    mv::find_projector_points(maps.columns, maps.rows, maps.points, found, valid);
    for (std::size_t i = 0; i < valid.size(); ++i) {
      EXPECT_EQ(valid[i], maps.points[i].x < 90 ? 1 : 0) << maps.points[i];
      EXPECT_EQ(found[i] == cv::Point2f(-1, -1), valid[i] == 0);
    }
  }
}

TEST(FindProjectorPoints, TakesTheProjectorsFirstColumnAndRow) {
  // Light of the coordinate 0 is as good as any other; only below is nothing decoded.
  Maps maps(0);
  maps.columns.setTo(0);
  maps.rows.setTo(0);
  std::vector<cv::Point2f> found;
  std::vector<std::uint8_t> valid;
  mv::find_projector_points(maps.columns, maps.rows, maps.points, found, valid);
  EXPECT_EQ(countValid(valid), static_cast<long>(maps.points.size()));
  for (cv::Point2f const& point : found) {
    EXPECT_EQ(point, cv::Point2f(0, 0));
  }
}

TEST(FindProjectorPoints, TakesAnyInput) {
  Maps const maps(0);
  float const nan = std::numeric_limits<float>::quiet_NaN();
  std::vector<cv::Point2f> found(3);
  std::vector<std::uint8_t> valid(5);
  mv::find_projector_points(maps.columns, maps.rows, {}, found, valid);
  EXPECT_TRUE(found.empty() && valid.empty());
  mv::find_projector_points(maps.columns, maps.rows, {{nan, 5}, {-30, 5}, {5000, 5}, {200, 150}}, found,
                            valid);
  EXPECT_EQ(valid, (std::vector<std::uint8_t>{0, 0, 0, 1}));
  expectError([&] { mv::find_projector_points(maps.columns, cv::Mat(2, 2, CV_32F), {}, found, valid); },
              "one size");
  expectError(
      [&] { mv::find_projector_points(cv::Mat(2, 2, CV_8U), cv::Mat(2, 2, CV_32F), {}, found, valid); },
      "CV_32FC1");
}

/// The maps of a chessboard that stands askew, black squares not decoded, and what the camera sees of it.
struct BoardMaps : Maps {
  cv::Mat light = cv::Mat(300, 400, CV_8U);

  BoardMaps(double noise, double degrees) : Maps(noise) {
    constexpr double square = 24;
    constexpr double edge = 1; // px, to which the camera's blur mixes black and white
    constexpr float drawn = 0.2F;
    double const c = std::cos(degrees * CV_PI / 180);
    double const s = std::sin(degrees * CV_PI / 180);
    cv::Point2d const origin(203.3, 147.8);
    for (int y = 0; y < light.rows; ++y) {
      for (int x = 0; x < light.cols; ++x) {
        double const u = (c * (x - origin.x) + s * (y - origin.y)) / square;
        double const v = (c * (y - origin.y) - s * (x - origin.x)) / square;
        bool const isBlack = (cvFloor(u) + cvFloor(v)) % 2 != 0;
        light.at<std::uint8_t>(y, x) = isBlack ? 30 : 200;
        if (isBlack) {
          columns.at<float>(y, x) = -1;
          rows.at<float>(y, x) = -1;
        } else if (square * std::min(std::abs(u - cvRound(u)), std::abs(v - cvRound(v))) < edge) {
          columns.at<float>(y, x) += drawn; // one way: not what the fit's symmetry takes off
        }
      }
    }
    points.clear();
    for (int j = -4; j <= 4; ++j) {
      for (int i = -5; i <= 5; ++i) {
        cv::Point2d const p = origin + square * cv::Point2d(c * i - s * j, s * i + c * j);
        if (cv::Rect2d(25, 25, 350, 250).contains(p)) {
          points.emplace_back(p);
        }
      }
    }
  }
};

TEST(FindProjectorCorners, ReadsThemFromWhiteSquaresAlone) {
  for (double const degrees : {0.0, 11.0, 45.0, 73.0}) { // sectors, whose borders are fixed, cut squares
    constexpr double noise = 0.02;
    BoardMaps const maps(noise, degrees);
    std::vector<cv::Point2f> found;
    std::vector<cv::Point2f> sigmas;
    std::vector<std::uint8_t> valid;
    mv::find_projector_points(maps.columns, maps.rows, maps.points, found, valid);
    EXPECT_EQ(countValid(valid), 0) << "of dots with so little around them";
    mv::find_projector_corners(maps.columns, maps.rows, maps.light, maps.points, found, sigmas, valid);
    ASSERT_EQ(countValid(valid), static_cast<long>(maps.points.size())) << degrees;
    double squares = 0;
    for (std::size_t i = 0; i < found.size(); ++i) {
      cv::Point2d const miss = cv::Point2d(found[i]) - Maps::truth(static_cast<double>(maps.points[i].x),
                                                                   static_cast<double>(maps.points[i].y));
      squares += 0.5 * (std::pow(miss.x / static_cast<double>(sigmas[i].x), 2) +
                        std::pow(miss.y / static_cast<double>(sigmas[i].y), 2));
    }
    EXPECT_NEAR(std::sqrt(squares / static_cast<double>(found.size())), 1, 0.25) << degrees; // of some 70
    EXPECT_LT(maps.rms(found, valid), 0.2 * noise);
  }
}

TEST(FindProjectorCorners, RefusesCornersThatAreLitOnOneSide) {
  for (double const degrees : {0.0, 30.0, 45.0}) {
    BoardMaps maps(0.02, degrees);
    constexpr int edge = 230;
    maps.columns.colRange(edge, 400) = -1;
    maps.rows.colRange(edge, 400) = -1;
    std::vector<cv::Point2f> found;
    std::vector<cv::Point2f> sigmas;
    std::vector<std::uint8_t> valid;
    mv::find_projector_corners(maps.columns, maps.rows, maps.light, maps.points, found, sigmas, valid);
    for (std::size_t i = 0; i < valid.size(); ++i) {
      // The light must go on beyond a corner by about half of what the fit rests on near it.
      constexpr float near = 0.55F * 0.8F * 24;
      float const beyond = static_cast<float>(edge) - maps.points[i].x;
      if (beyond > near || beyond < 0.3F * near) {
        EXPECT_EQ(valid[i], beyond > near ? 1 : 0) << degrees << maps.points[i];
      }
    }
  }
}

TEST(FindProjectorCorners, WantsAnImageOfTheMapsSize) {
  BoardMaps const maps(0, 0);
  std::vector<cv::Point2f> found;
  std::vector<cv::Point2f> sigmas;
  std::vector<std::uint8_t> valid;
  float const nan = std::numeric_limits<float>::quiet_NaN();
  mv::find_projector_corners(maps.columns, maps.rows, maps.light, {{nan, 5}, {-30, 5}, {5000, 5}, {2, 2}},
                             found, sigmas, valid);
  EXPECT_EQ(countValid(valid), 0);
  expectError(
      [&] { mv::find_projector_corners(maps.columns, maps.rows, cv::Mat(), {}, found, sigmas, valid); },
      "full light");
}

} // namespace
} // namespace vorn::test
