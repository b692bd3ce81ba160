// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <opencv2/core.hpp>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>

#include <vorn/core/exception.hpp>
#include <vorn/mv/geometry/rotation.hpp>
#include <vorn/mv/geometry/transform.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "pointcloud/cleaning_scenes.hpp"
#include "support/point_sets.hpp"
#include "support/reference_octree.hpp"

namespace vorn::mv {
namespace {

using namespace vorn::test;

using L2 = Distance<cv::Vec3f>::L2;

/// The neighbours of the rules, from a plain tree over the finite points.
Neighbours neighboursOf(PointCloud const& cloud, float radius) {
  std::vector<cv::Vec3f> finite;
  std::vector<unsigned> numbers;
  for (unsigned i = 0; i < cloud.pointCount(); ++i) {
    cv::Vec3f const& point = cloud.points()(static_cast<int>(i));
    if (std::isfinite(point[0]) && std::isfinite(point[1]) && std::isfinite(point[2])) {
      finite.push_back(point);
      numbers.push_back(i);
    }
  }
  auto const tree = std::make_shared<test::ReferenceOctree>(finite, 32, 0.0F);
  return [=, points = cloud.points()](unsigned i) {
    std::vector<unsigned> found;
    if (cv::checkRange(cv::Mat(points(static_cast<int>(i))))) {
      for (unsigned const neighbour : tree->search<L2>(points(static_cast<int>(i)), radius)) {
        found.push_back(numbers[neighbour]);
      }
    }
    return found;
  };
}

/// The pass of `clean` word by word.
int cleanPlainly(PointCloud const& cloud, cv::Mat_<uchar>& state, float radius, int minNeighbours) {
  Neighbours const neighbours = neighboursOf(cloud, radius);
  int removed = 0;
  for (unsigned i = 0; i < state.total(); ++i) {
    if (state(static_cast<int>(i)) == 0) {
      int count = 0;
      for (unsigned const neighbour : neighbours(i)) {
        count += state(static_cast<int>(neighbour)) == 0 ? 1 : 0;
      }
      if (count < minNeighbours) {
        state(static_cast<int>(i)) = 1;
        ++removed;
      }
    }
  }
  return removed;
}

TEST_F(Cleaning, RadiusCleaningIsTheSequentialPass) {
  for (auto const& make :
       {std::function<PointCloud()>([] { return scan(0.4F); }), std::function<PointCloud()>(heap)}) {
    for (float const radius : {1.0F, 1.5F, 2.0F}) {
      // From one that peels nothing to one that lets holes eat the whole surface.
      for (int const minNeighbours : {1, 2, 4, 6, 7, 8, 9, 12}) {
        PointCloud cloud = make();
        cv::Mat_<uchar> expected = savedStates(cloud);
        int const removed = cleanPlainly(cloud, expected, radius, minNeighbours);
        cv::Mat_<uchar> const before = cloud.state().clone();
        runEverywhere(cloud, [=](PointCloud& c) { EXPECT_EQ(c.clean(radius, minNeighbours), removed); });
        expectSameStates(cloud, expected);
        cloud.undoState();
        expectSameStates(cloud, before);
      }
    }
  }
}

TEST_F(Cleaning, RadiusCleaningUnravelsAChainInOnePass) {
  // Each point has two neighbours in the chain until the one before it goes.
  cv::Mat_<cv::Vec3f> points(1, 5000);
  for (int i = 0; i < points.cols; ++i) {
    points(i) = {static_cast<float>(i), 0.0F, 0.0F};
  }
  PointCloud forward(points, false);
  EXPECT_EQ(forward.clean(1.5F, 3), points.cols);
  cv::Mat_<cv::Vec3f> flipped;
  cv::flip(points, flipped, 1);
  flipped.at<cv::Vec3f>(0, 0)[1] = 100.0F;
  PointCloud backward(flipped, false);
  backward.state()(1) = 255;
  EXPECT_EQ(backward.clean(1.5F, 2), 1);
  EXPECT_FLOAT_EQ(backward.boxDims()[1], 0.0F);
}

TEST_F(Cleaning, NegativeRadiusFindsNoNeighbours) {
  PointCloud cloud = heap();
  auto const present = static_cast<int>(cloud.presentCount());
  EXPECT_EQ(cloud.clean(-1.0F, 1), present);
  cloud.undoState();
  EXPECT_EQ(cloud.filterSmallCluster(-1.0F, 2), present);
}

TEST_F(Cleaning, ClustersInSpaceAreThoseOfAFloodFill) {
  for (auto const& make :
       {std::function<PointCloud()>([] { return scan(0.4F); }), std::function<PointCloud()>(heap)}) {
    for (float const maxDistance : {0.0F, 0.8F, 1.0F, 1.3F, 12.0F}) {
      for (int const minClusterSize : {-1, 2, 6, 100, 100000}) {
        PointCloud cloud = make();
        cv::Mat_<uchar> expected = savedStates(cloud);
        int const removed = deleteClustersPlainly(expected, neighboursOf(cloud, maxDistance),
                                                  static_cast<std::size_t>(std::max(minClusterSize, 0)));
        runEverywhere(cloud, [=](PointCloud& c) {
          EXPECT_EQ(c.filterSmallCluster(maxDistance, minClusterSize), removed);
        });
        expectSameStates(cloud, expected);
      }
    }
  }
}

TEST_F(Cleaning, MillionPointsOnOneSpotAreJudgedTogether) {
  // One by one, each against all others, they would take hours.
  constexpr int million = 1000000;
  PointCloud cloud(cv::Mat_<cv::Vec3f>(1000, 1000, cv::Vec3f(1, 2, 3)), true);
  cloud.points()(0, 0) = {0, 0, 0};
  EXPECT_EQ(cloud.filterSmallCluster(0.1F, 1000), 1);
  for (int const minNeighbours : {2, 500, million - 1}) {
    EXPECT_EQ(cloud.clean(0.1F, minNeighbours), 0);
  }
  EXPECT_EQ(cloud.clean(0.1F, million), million - 1);
  EXPECT_EQ(cloud.presentCount(), 0U);
  cloud.resetState();
  EXPECT_EQ(cloud.clean(10.0F, million), 0);
  EXPECT_EQ(cloud.clean(10.0F, million + 1), million);
  cloud.resetState();
  PointCloud other = cloud.clone();
  testing::internal::CaptureStdout();
  EXPECT_EQ(cloud.calcDistStat(other), cv::Vec2d(0, 0));
  testing::internal::GetCapturedStdout();
}

TEST_F(Cleaning, ManyNeighboursAreCountedAsFewAre) {
  // Two dense clusters and a thin cloud, with deleted points between: holes eat their way into the clusters.
  std::vector<cv::Vec3f> points = test::randomPoints(1500, 0.0F, 1.0F);
  for (cv::Vec3f const& point : test::randomPoints(1500, 0.0F, 4.0F)) {
    points.push_back(point + cv::Vec3f(1.0F, 0.0F, 0.0F));
  }
  points.insert(points.end(), 700, cv::Vec3f(2.0F, 2.0F, 2.0F));
  points.emplace_back(test::notANumber, 0.0F, 0.0F);
  for (float const radius : {0.5F, 0.8F, 100.0F}) {
    for (int const minNeighbours : {257, 600, 1400, 3650, 3651}) {
      PointCloud cloud(test::asGrid(points, 1), false);
      for (int i = 0; i < 50; ++i) {
        cloud.state()(i * 70) = 255;
      }
      cv::Mat_<uchar> expected = savedStates(cloud);
      int const removed = cleanPlainly(cloud, expected, radius, minNeighbours);
      runEverywhere(cloud, [=](PointCloud& c) { EXPECT_EQ(c.clean(radius, minNeighbours), removed); });
      expectSameStates(cloud, expected);
    }
  }
}

TEST_F(Cleaning, EdgePointsAreCountedAndColoured) {
  PointCloud plain = scan(0.1F);
  PointCloud cloud(plain.points(), true, {}, cv::Mat_<cv::Vec3b>(rows, columns, cv::Vec3b(1, 2, 3)));
  plain.state().copyTo(cloud.state());
  Neighbours const neighbours = neighboursOf(cloud, 1.5F);
  int edges = 0;
  for (unsigned i = 0; i < cloud.pointCount(); ++i) {
    edges += cloud.state()(static_cast<int>(i)) == 0 && neighbours(i).size() < 6 ? 1 : 0;
  }
  testing::internal::CaptureStdout();
  cloud.markEdgePoints(1.5F, 6);
  std::string const text = testing::internal::GetCapturedStdout();
  EXPECT_EQ(text.find("Marking edge points...\nEdge point count: " + std::to_string(edges) + "\nFinished in"),
            0U);
  cv::Mat white;
  cv::inRange(cloud.texture(), cv::Scalar::all(255), cv::Scalar::all(255), white);
  EXPECT_EQ(cv::countNonZero(white), edges);
}

TEST_F(Cleaning, DistancesAreToTheNearestPresentPoint) {
  PointCloud from = scan(0.3F);
  PointCloud to(test::asGrid(test::randomPoints(500, 0.0F, 60.0F), 20), false);
  to.state().row(3) = 1;
  std::vector<double> distances;
  for (unsigned i = 0; i < from.pointCount(); ++i) {
    cv::Vec3f const& point = from.points()(static_cast<int>(i));
    if (from.state()(static_cast<int>(i)) == 0 && cv::checkRange(cv::Mat(point))) {
      double nearest = std::numeric_limits<double>::max();
      for (int j = 0; j < 500; ++j) {
        nearest = to.state()(j) == 0
                      ? std::min(nearest, cv::norm(cv::Vec3d(point) - cv::Vec3d(to.points()(j))))
                      : nearest;
      }
      distances.push_back(nearest);
    }
  }
  cv::Scalar mean;
  cv::Scalar sigma;
  cv::meanStdDev(distances, mean, sigma);
  testing::internal::CaptureStdout();
  cv::Vec2d const found = from.calcDistStat(to);
  std::string const text = testing::internal::GetCapturedStdout();
  // Single distances are rounded to float.
  EXPECT_NEAR(found[0], mean[0], 1e-6 * mean[0]);
  EXPECT_NEAR(found[1], sigma[0], 1e-6 * mean[0]);
  std::ostringstream expected;
  expected << "N=" << distances.size() << "\nMean=" << found[0] << " mm\nSigma=" << found[1] << "\n";
  EXPECT_NE(text.find(expected.str()), std::string::npos) << text;
  to.state() = 1;
  EXPECT_EQ(from.calcDistStat(to), cv::Vec2d(0, 0));
}

TEST_F(Cleaning, DistancesAreBetweenPlacesInOneFrame) {
  PointCloud from = scan(0.3F);
  PointCloud to(test::asGrid(test::randomPoints(500, 0.0F, 60.0F), 20), false);
  from.setOffset({4500000.125, 5400000, 400});
  to.setOffset({4500020, 5399990.5, 410});
  for (bool const isMoved : {false, true}) {
    if (isMoved) {
      from.setTransform(math::createTransform(math::rot3({1, 2, 3}, 0.4), {1, -2, 30}));
      to.setTransform(math::createTransform(math::rot3({-3, 1, 1}, -0.9), {-7, 2, 5}));
    }
    auto const placeOf = [](PointCloud const& cloud, int i) {
      return cloud.offset() + math::getR3(cloud.getTransform()) * cv::Vec3d(cloud.points()(i)) +
             math::getT3(cloud.getTransform());
    };
    std::vector<double> distances;
    for (int i = 0; i < static_cast<int>(from.pointCount()); ++i) {
      if (from.state()(i) == 0 && cv::checkRange(cv::Mat(from.points()(i)))) {
        double nearest = std::numeric_limits<double>::max();
        for (int j = 0; j < 500; ++j) {
          nearest = std::min(nearest, cv::norm(placeOf(from, i) - placeOf(to, j)));
        }
        distances.push_back(nearest);
      }
    }
    cv::Scalar mean;
    cv::Scalar sigma;
    cv::meanStdDev(distances, mean, sigma);
    testing::internal::CaptureStdout();
    cv::Vec2d const found = from.calcDistStat(to);
    testing::internal::GetCapturedStdout();
    EXPECT_NEAR(found[0], mean[0], 1e-5 * mean[0]);
    EXPECT_NEAR(found[1], sigma[0], 1e-5 * mean[0]);
  }
  to.setTransform(cv::Matx44d::zeros());
  EXPECT_THROW(from.calcDistStat(to), Exception);
}

TEST_F(Cleaning, EmptyCloudsAreLeftAlone) {
  PointCloud cloud;
  PointCloud organized(cv::Mat_<cv::Vec3f>(), true);
  for (PointCloud* empty : {&cloud, &organized}) {
    empty->filterByZRange(0, 1);
    empty->filterByDz(1);
    empty->filterBorder(1);
    empty->filterOutlier();
    empty->markEdgePoints(1, 1);
    empty->saveState();
    empty->undoState();
    empty->applyTransform();
    EXPECT_EQ(empty->clean(1, 1) + empty->filterSmallCluster(1, 1) + empty->filterSmallClusterOrganized(1, 1),
              0);
    EXPECT_EQ(empty->calcDistStat(cloud), cv::Vec2d(0, 0));
  }
}

} // namespace
} // namespace vorn::mv
