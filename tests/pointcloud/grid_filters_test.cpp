// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <vector>

#include <gtest/gtest.h>

#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "pointcloud/cleaning_scenes.hpp"

namespace vorn::mv {
namespace {

using namespace vorn::test;

/// The four grid neighbours that are nearer than a distance.
Neighbours gridNeighboursOf(PointCloud const& cloud, float maxDistance) {
  return [points = cloud.points(), maxDistance](unsigned i) {
    int const row = static_cast<int>(i) / columns;
    int const column = static_cast<int>(i) % columns;
    cv::Point const steps[] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}};
    std::vector<unsigned> found;
    for (cv::Point const& step : steps) {
      int const r = row + step.y;
      int const c = column + step.x;
      if (r >= 0 && r < rows && c >= 0 && c < columns) {
        cv::Vec3d const difference = cv::Vec3d(points(r, c)) - cv::Vec3d(points(row, column));
        if (std::sqrt(difference.dot(difference)) < static_cast<double>(maxDistance)) {
          found.push_back(static_cast<unsigned>(r * columns + c));
        }
      }
    }
    return found;
  };
}

class GridFilters : public Cleaning {};

TEST_F(GridFilters, KeepsPointsAtTheEndsOfTheDepthRange) {
  cv::Mat_<cv::Vec3f> points(1, 7, cv::Vec3f(1, 2, 0));
  float const depths[] = {
      0.0F, 100.0F, -0.001F, 100.01F, test::notANumber, std::numeric_limits<float>::infinity(), 500.0F};
  for (int i = 0; i < 7; ++i) {
    points(i)[2] = depths[i];
  }
  PointCloud cloud(points, false);
  cloud.state()(6) = 4;
  cloud.filterByZRange(0.0F, 100.0F);
  expectSameStates(cloud, (cv::Mat_<uchar>(1, 7) << 0, 0, 255, 255, 0, 255, 4));
}

TEST_F(GridFilters, DepthRangesAreOfPlacesNotOfWhatIsLeftOfThemBesideAnOffset) {
  PointCloud cloud((cv::Mat_<cv::Vec3f>(1, 4) << cv::Vec3f(0, 0, 0.125F), cv::Vec3f(0, 0, -0.25F),
                    cv::Vec3f(0, 0, 10), cv::Vec3f(0, 0, test::notANumber)),
                   false);
  cloud.setOffset({4500000, 5400000, 5e6 + 0.125}); // floats have steps of a half there
  cloud.filterByZRange(5e6F, 5e6F + 10.0F);
  expectSameStates(cloud, (cv::Mat_<uchar>(1, 4) << 0, 255, 255, 0));
}

TEST_F(GridFilters, DepthStepsAreDistancesInSpaceToFourNeighbours) {
  // 0 and 5, a distance that some neighbours have exactly, are the edges of the comparison.
  for (float const maxStep :
       {1.5F, 0.9F, 5.0F, std::nextafter(5.0F, 0.0F), 0.0F, -1.0F, 30.0F, 1e-20F, 1e20F}) {
    for (float const noise : {0.1F, 0.0F}) {
      PointCloud cloud = scan(noise);
      cloud.points()(10, 10) = {10, 10, 50};
      cloud.points()(10, 11) = {13, 10, 54};
      cloud.points().row(12).setTo(cv::Scalar(7, 8, 50));
      cloud.points()(12, 20) = {10, 12, 50}; // 5 from both its neighbours in the row
      cv::Mat_<uchar> expected = cloud.state().clone();
      cv::Mat_<cv::Vec3f> const points = cloud.points();
      for (int row = 1; row < rows - 1; ++row) {
        for (int column = 1; column < columns - 1; ++column) {
          for (cv::Point const& step :
               {cv::Point(0, -1), cv::Point(0, 1), cv::Point(-1, 0), cv::Point(1, 0)}) {
            cv::Vec3d const d =
                cv::Vec3d(points(row, column)) - cv::Vec3d(points(row + step.y, column + step.x));
            if (expected(row, column) == 0 && std::sqrt(d.dot(d)) > static_cast<double>(maxStep)) {
              expected(row, column) = 255;
            }
          }
        }
      }
      runEverywhere(cloud, [=](PointCloud& c) { c.filterByDz(maxStep); });
      expectSameStates(cloud, expected);
    }
  }
}

TEST_F(GridFilters, BorderIsRemovedWhateverItsState) {
  for (int const width : {-1, 0, 1, 7, 19, 100}) {
    PointCloud cloud = scan(0.0F);
    cv::Mat_<uchar> expected = cloud.state().clone();
    if (width > 0) {
      cv::Mat_<uchar> const before = expected.clone();
      expected = 255;
      cv::Rect const inner(width, width, std::max(columns - 2 * width, 0), std::max(rows - 2 * width, 0));
      if (!inner.empty()) {
        before(inner).copyTo(expected(inner));
      }
    }
    cloud.filterBorder(width);
    expectSameStates(cloud, expected);
  }
}

TEST_F(GridFilters, ErosionLooksAtSevenNeighbours) {
  PointCloud cloud(cv::Mat_<cv::Vec3f>(9, 11, cv::Vec3f(0, 0, 0)), true);
  cloud.state()(4, 5) = 255;
  cloud.filterOutlier();
  cv::Mat_<uchar> expected(9, 11, uchar{0});
  for (cv::Point const& at : {cv::Point(6, 5), cv::Point(5, 5), cv::Point(4, 5), cv::Point(6, 4),
                              cv::Point(4, 4), cv::Point(5, 3), cv::Point(4, 3)}) {
    expected(at) = 1;
  }
  expected(4, 5) = 255;
  expectSameStates(cloud, expected);
}

TEST_F(GridFilters, ErosionIsTheSameInAnyOrder) {
  PointCloud cloud = scan(0.0F);
  cv::Mat_<uchar> const before = cloud.state().clone();
  cv::Mat_<uchar> expected = before.clone();
  for (int row = rows - 2; row > 0; --row) {
    for (int column = columns - 2; column > 0; --column) {
      cv::Mat_<uchar> around = before(cv::Rect(column - 1, row - 1, 3, 3)).clone();
      around(2, 0) = 0;
      if (before(row, column) == 0 && cv::countNonZero(around) > 0) {
        expected(row, column) = 1;
      }
    }
  }
  runEverywhere(cloud, [](PointCloud& c) { c.filterOutlier(); });
  expectSameStates(cloud, expected);
}

TEST_F(GridFilters, LeaveUnorganizedCloudsAlone) {
  PointCloud cloud = heap();
  cv::Mat_<uchar> const before = cloud.state().clone();
  cloud.filterByDz(0.1F);
  cloud.filterBorder(3);
  cloud.filterOutlier();
  EXPECT_EQ(cloud.filterSmallClusterOrganized(0.1F, 100), 0);
  expectSameStates(cloud, before);
}

TEST_F(GridFilters, ClustersAreThoseOfAFloodFill) {
  for (float const maxDistance : {0.0F, 1.0F, 1.2F, 1.6F, 12.0F}) {
    for (int const minClusterSize : {0, 1, 2, 5, 60, 100000}) {
      PointCloud cloud = scan(0.2F);
      cv::Mat_<uchar> expected = savedStates(cloud);
      int const removed = deleteClustersPlainly(expected, gridNeighboursOf(cloud, maxDistance),
                                                static_cast<std::size_t>(minClusterSize));
      runEverywhere(cloud, [=](PointCloud& c) {
        EXPECT_EQ(c.filterSmallClusterOrganized(maxDistance, minClusterSize), removed);
      });
      expectSameStates(cloud, expected);
    }
  }
}

} // namespace
} // namespace vorn::mv
