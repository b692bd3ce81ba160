// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <opencv2/core.hpp>
#include <random>
#include <utility>

#include <gtest/gtest.h>

#include <vorn/mv/surface/height_map.hpp>

#include "support/expect_error.hpp"
#include "support/point_sets.hpp"
#include "support/seed.hpp"

namespace vorn::mv {
namespace {

using namespace vorn::test;

/// Five points in the cell (1, 2) of a grid of 2 x 4 cells over z = 10, one at its other end.
PointCloud heap() {
  cv::Mat_<cv::Vec3f> points(1, 8);
  float const heights[] = {14.0F, 11.0F, 12.0F, 19.0F, 13.0F};
  for (int i = 0; i < 5; ++i) {
    points(i) = {4.0F + 0.1F * static_cast<float>(i), 2.0F, heights[i]};
  }
  points(5) = {0.0F, 0.0F, 10.0F};
  points(6) = {6.0F, 0.0F, 11.5F};
  points(7) = {4.0F, 2.0F, notANumber};
  PointCloud cloud(points, false);
  cloud.fields()["sigma"] = (cv::Mat_<float>(1, 8) << 1, 1, 0.5F, 2, 1, 1, 1, 1);
  return cloud;
}

TEST(HeightMap, TakesTheHeightThatItsRuleSays) {
  HeightMapSettings settings;
  settings.plane = Plane3f(cv::Point3f(0, 0, 10), cv::Vec3f(0, 0, 1));
  settings.cellSize = 2.0;
  std::pair<HeightRule, double> const rules[] = {
      {HeightRule::Top, 9.0},
      {HeightRule::Mean, (4.0 + 1.0 + 2.0 + 9.0 + 3.0) / 5.0},
      {HeightRule::Median, 3.0},
      {HeightRule::Weighted, (4.0 + 1.0 + 4.0 * 2.0 + 9.0 / 4.0 + 3.0) / (3.0 + 4.0 + 0.25)}};
  for (auto const& [rule, height] : rules) {
    settings.rule = rule;
    HeightMap const map = heightMapOf(heap(), settings);
    ASSERT_EQ(map.heights.size(), cv::Size(4, 2));
    EXPECT_NEAR(static_cast<double>(map.heights(1, 2)), height, 1e-5);
    EXPECT_EQ(map.counts(1, 2), 5);
    EXPECT_EQ(map.heights(0, 3), 1.5F);
    EXPECT_TRUE(std::isnan(map.heights(0, 1)));
    EXPECT_EQ(map.counts(0, 1), 0);
    EXPECT_DOUBLE_EQ(map.coverage, 3.0 / 8.0);
  }
  PointCloud even = heap();
  even.state()(3) = 1;
  settings.rule = HeightRule::Median;
  EXPECT_EQ(heightMapOf(even, settings).heights(1, 2), 2.5F) << "the mean of the two in the middle";
}

TEST(HeightMap, FitsItsPlaneAndGoesBackToTheCloud) {
  // A tilted plane with a box of height 2 on it, seen from the origin.
  cv::Vec3d const x = cv::Vec3d(2.0, 0.0, 1.0) * (1.0 / std::sqrt(5.0));
  cv::Vec3d const y(0.0, 1.0, 0.0);
  cv::Vec3d const up = x.cross(y) * -1.0;
  cv::Mat_<cv::Vec3f> points(80, 100);
  for (int row = 0; row < 80; ++row) {
    for (int column = 0; column < 100; ++column) {
      bool const isBox = row >= 38 && row < 42 && column >= 48 && column < 52;
      points(row, column) =
          cv::Vec3d(10, 20, 300) + 0.3 * column * x + 0.3 * row * y + (isBox ? 2.0 : 0.0) * up;
    }
  }
  PointCloud const cloud(points, true);
  HeightMapSettings settings;
  settings.cellSize = 0.3;
  HeightMap const map = heightMapOf(cloud, settings);
  EXPECT_GT(map.coverage, 0.9);
  double low = 0.0;
  double high = 0.0;
  cv::minMaxLoc(map.heights, &low, &high, nullptr, nullptr, map.counts > 0);
  EXPECT_NEAR(high - low, 2.0, 0.05) << "towards the sensor is up";
  PointCloud const back = cloudOf(map);
  EXPECT_TRUE(back.isOrganized());
  for (int row = 5; row < back.points().rows - 5; row += 7) {
    for (int column = 5; column < back.points().cols - 5; column += 7) {
      cv::Vec3d const point(back.points()(row, column));
      double const above = (point - cv::Vec3d(10, 20, 300)).dot(up);
      EXPECT_TRUE(!std::isfinite(point[2]) || std::abs(above) < 0.05 || std::abs(above - 2.0) < 0.05)
          << above;
    }
  }
  EXPECT_NEAR(heightMapOf(cloud).cellSize, 0.3, 0.01) << "a point a cell";
}

/// A plane at z = 300 with noise, as a grid, a list of it, or as many points strewn at random; with points
/// that lie far from it.
PointCloud noisyPlane(bool isGrid, bool isStrewn, int strays) {
  std::mt19937 random(test::seed());
  std::normal_distribution<float> error(0.0F, 0.005F);
  std::uniform_real_distribution<float> strewn(0.0F, 10.0F);
  cv::Mat_<cv::Vec3f> points(50, 100); // 0.1 apart in rows, rows 0.2 apart
  for (int row = 0; row < points.rows; ++row) {
    for (int column = 0; column < points.cols; ++column) {
      float const x = isStrewn ? strewn(random) : 0.1F * static_cast<float>(column);
      float const y = isStrewn ? strewn(random) : 0.2F * static_cast<float>(row);
      points(row, column) = {x - 5.0F, y - 5.0F, 300.0F + error(random)};
    }
  }
  for (int i = 0; i < strays; ++i) {
    points(3 + i, 7) *= 20.0F;
  }
  return PointCloud(isGrid ? points : points.reshape(3, 1).clone(), isGrid);
}

TEST(HeightMap, IsTheSameNearAPartWithStrayPoints) {
  double const even = std::sqrt(0.1 * 0.2);
  for (auto const& [isGrid, isStrewn] : {std::pair(true, false), {false, false}, {false, true}}) {
    for (int const strays : {0, 1, 20}) {
      HeightMap const map = heightMapOf(noisyPlane(isGrid, isStrewn, strays));
      EXPECT_NEAR(map.cellSize / even, 1.0, 0.1) << isGrid << isStrewn << strays;
      EXPECT_LT(map.mapFromCloud(2, 2), -0.99999) << isGrid << isStrewn << strays;
      cv::Vec4d const middle = map.mapFromCloud * cv::Vec4d(0.0, 0.0, 300.0, 1.0);
      EXPECT_NEAR(middle[2], 0.0, 0.01) << isGrid << isStrewn << strays;
    }
  }
  PointCloud far = noisyPlane(true, false, 0);
  far.points()(0, 0) *= 2e3F;
  expectError([&] { heightMapOf(far); }, "remove points far from all others");
}

/// `scans` of a plane of side x side places 0.1 apart, each with noise of its own.
PointCloud scansOfOnePlane(int side, int scans, float sideways) {
  std::mt19937 random(test::seed());
  std::normal_distribution<float> error;
  cv::Mat_<cv::Vec3f> points(scans, side * side);
  for (int scan = 0; scan < scans; ++scan) {
    for (int i = 0; i < side * side; ++i) {
      points(scan, i) = {0.1F * static_cast<float>(i % side) + sideways * error(random),
                         0.1F * static_cast<float>(i / side) + sideways * error(random),
                         100.0F + 0.01F * error(random)};
    }
  }
  return PointCloud(points.reshape(3, 1).clone(), false);
}

TEST(HeightMap, HasFewHolesWhereSurfacesWereMeasuredTwice) {
  for (auto const& [scans, sideways] : {std::pair(2, 0.002F), {10, 0.0F}, {10, 0.002F}, {3, 0.01F}}) {
    HeightMap const map = heightMapOf(scansOfOnePlane(150, scans, sideways));
    EXPECT_GT(map.coverage, 0.6) << scans << " scans, noise " << sideways << ", cells of " << map.cellSize;
    EXPECT_LT(map.cellSize, 0.105) << "resolution is kept";
  }
  cv::Mat_<cv::Vec3f> lines(100, 2000);
  cv::Mat_<cv::Vec3f> stacks(1, 30000);
  for (int i = 0; i < 200000; ++i) {
    lines(i / 2000, i % 2000) = {0.01F * static_cast<float>(i % 2000), 0.5F * static_cast<float>(i / 2000),
                                 100.0F};
  }
  for (int i = 0; i < 30000; ++i) {
    stacks(i) = {static_cast<float>(i % 100), static_cast<float>(i / 100 % 100),
                 1e-3F * static_cast<float>(i / 10000)};
  }
  HeightMap const map = heightMapOf(PointCloud(lines.reshape(3, 1).clone(), false));
  EXPECT_GT(map.coverage, 0.3);
  EXPECT_LT(map.cellSize, 0.5);
  HeightMapSettings settings;
  settings.plane = Plane3f(cv::Point3f(0, 0, 0), cv::Vec3f(0, 0, 1));
  EXPECT_NEAR(heightMapOf(PointCloud(stacks, false), settings).cellSize, 1.0, 0.01);
}

TEST(HeightMap, KeepsTheResolutionOfNarrowShapes) {
  std::vector<cv::Vec3f> rim;
  std::vector<cv::Vec3f> bar;
  for (int i = -501; i <= 501; ++i) {
    for (int j = -501; j <= 501; ++j) {
      double const radius = 0.1 * std::hypot(i, j);
      if (radius > 49.5 && radius < 50.0) {
        rim.emplace_back(0.1F * static_cast<float>(i), 0.1F * static_cast<float>(j), 300.0F);
      }
    }
    for (int j = 0; j < 8; ++j) { // slanted
      bar.emplace_back(0.07F * static_cast<float>(i - j), 0.07F * static_cast<float>(i + j), 300.0F);
    }
  }
  for (auto const& points : {rim, bar}) {
    double const cell = heightMapOf(PointCloud(cv::Mat_<cv::Vec3f>(points, true), false)).cellSize;
    EXPECT_GT(cell, 0.08);
    EXPECT_LT(cell, 0.3) << "spacing 0.1";
  }
}

TEST(HeightMap, GivesSmallRegularGridsTheirPitch) {
  for (int const side : {3, 5, 10, 20, 30, 60}) {
    HeightMap const map = heightMapOf(scansOfOnePlane(side, 1, 0.0F));
    EXPECT_NEAR(map.cellSize, 0.1, 0.002) << side;
    EXPECT_EQ(map.heights.size(), cv::Size(side, side));
    EXPECT_EQ(map.coverage, 1.0) << side;
  }
}

TEST(HeightMap, IsMadeOfGridsWithoutNeighbours) {
  cv::Mat_<cv::Vec3f> full(100, 100);
  for (int i = 0; i < 10000; ++i) {
    full(i / 100, i % 100) = {0.1F * static_cast<float>(i % 100), 0.1F * static_cast<float>(i / 100), 100.0F};
  }
  cv::Mat_<cv::Vec3f> sparse = full.clone();
  cv::Mat_<cv::Vec3f> checkered = full.clone();
  for (int row = 0; row < 100; ++row) {
    for (int column = 0; column < 100; ++column) {
      if (row % 2 == 1 || column % 2 == 1) {
        sparse(row, column) = cv::Vec3f::all(notANumber);
      }
      if ((row + column) % 2 == 1) {
        checkered(row, column) = cv::Vec3f::all(notANumber);
      }
    }
  }
  EXPECT_NEAR(heightMapOf(PointCloud(sparse, true)).cellSize, 0.2, 0.004);
  EXPECT_EQ(heightMapOf(PointCloud(sparse, true)).coverage, 1.0);
  EXPECT_NEAR(heightMapOf(PointCloud(checkered, true)).cellSize, std::sqrt(0.02), 0.01);
  EXPECT_GT(heightMapOf(PointCloud(checkered, true)).coverage, 0.6);
}

TEST(HeightMap, RefusesWhatHasNone) {
  expectError([] { heightMapOf(PointCloud()); }, "0 points, fewer than 3");
  cv::Mat_<cv::Vec3f> line(1, 50);
  for (int i = 0; i < 50; ++i) {
    line(i) = cv::Vec3f(1.0F, 2.0F, 3.0F) * static_cast<float>(i);
  }
  expectError([&] { heightMapOf(PointCloud(line, false)); }, "lie on a line");
  HeightMapSettings settings;
  settings.cellSize = 1e-7;
  expectError([&] { heightMapOf(heap(), settings); }, "no grid of at most 2^28 cells");
  settings.cellSize = -1.0;
  expectError([&] { heightMapOf(heap(), settings); }, "no grid");
  settings = {};
  settings.plane = Plane3f();
  expectError([&] { heightMapOf(heap(), settings); }, "no normal");
  settings = {};
  settings.rule = HeightRule::Weighted;
  PointCloud cloud = heap();
  cloud.fields()["sigma"] = cv::Mat_<float>(1, 8, 0.0F);
  expectError([&] { heightMapOf(cloud, settings); }, "sigma is 0");
  cloud.fields().clear();
  expectError([&] { heightMapOf(cloud, settings); }, "no field sigma");
  expectError([] { cloudOf(HeightMap()); }, "cell size is 0");
}

} // namespace
} // namespace vorn::mv
