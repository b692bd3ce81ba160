// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <opencv2/core.hpp>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>

#include <vorn/core/system.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "support/point_sets.hpp"
#include "support/reference_octree.hpp"

namespace vorn::mv {
namespace {

using L2 = Distance<cv::Vec3f>::L2;
using Neighbours = std::function<std::vector<unsigned>(unsigned)>;

/// Few rows and columns more than a vector register has lanes, so that loops have remainders.
constexpr int rows = 37;
constexpr int columns = 45;

/// A wavy surface on a grid with noise, steps, holes and points that are no numbers; pitch about 1.
PointCloud scan(float noise) {
  std::mt19937 random(test::seed());
  std::uniform_real_distribution<float> shift(-noise, noise);
  std::uniform_real_distribution<float> chance(0.0F, 1.0F);
  cv::Mat_<cv::Vec3f> points(rows, columns);
  for (int row = 0; row < rows; ++row) {
    for (int column = 0; column < columns; ++column) {
      auto const x = static_cast<float>(column);
      auto const y = static_cast<float>(row);
      float const z =
          50.0F + std::sin(0.3F * x) + (column > 30 ? 20.0F : 0.0F) + (chance(random) < 0.02F ? 9.0F : 0.0F);
      points(row, column) = {x + shift(random), y + shift(random), z + shift(random)};
    }
  }
  points(5, 6)[2] = test::notANumber;
  points(20, 21)[0] = std::numeric_limits<float>::infinity();
  points(20, 22)[0] = std::numeric_limits<float>::infinity();
  PointCloud cloud(points, true);
  for (uchar& state : cloud.state()) {
    float const draw = chance(random);
    state = draw < 0.05F ? 255 : (draw < 0.1F ? 2 : 0);
  }
  return cloud;
}

/// As large, without order, with repeated points and points at exact distances.
PointCloud heap() {
  PointCloud cloud(test::asGrid(test::latticePoints(rows * columns, 9), columns), false);
  for (int i = 0; i < columns; i += 3) {
    cloud.state()(i % rows, i) = 255;
  }
  return cloud;
}

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

/// Deletes small clusters of whatever neighbourhood by a flood fill from the first point on.
int deleteClustersPlainly(cv::Mat_<uchar>& state, Neighbours const& neighbours, std::size_t minClusterSize) {
  std::vector<bool> isVisited(state.total());
  std::vector<unsigned> removed;
  for (unsigned seed = 0; seed < state.total(); ++seed) {
    if (state(static_cast<int>(seed)) != 0 || isVisited[seed]) {
      continue;
    }
    std::vector<unsigned> cluster{seed};
    isVisited[seed] = true;
    for (std::size_t next = 0; next < cluster.size(); ++next) {
      for (unsigned const neighbour : neighbours(cluster[next])) {
        if (state(static_cast<int>(neighbour)) == 0 && !isVisited[neighbour]) {
          isVisited[neighbour] = true;
          cluster.push_back(neighbour);
        }
      }
    }
    if (cluster.size() < minClusterSize) {
      removed.insert(removed.end(), cluster.begin(), cluster.end());
    }
  }
  for (unsigned const point : removed) {
    state(static_cast<int>(point)) = 1;
  }
  return static_cast<int>(removed.size());
}

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

void expectSameStates(PointCloud const& cloud, cv::Mat_<uchar> const& expected) {
  EXPECT_EQ(cv::countNonZero(cloud.state() != expected), 0);
}

/// Runs a filter on the cloud, with other thread counts and on a region of a larger matrix on copies, and
/// expects the same states of all.
template <class Filter>
void runEverywhere(PointCloud& cloud, Filter const& filter) {
  auto const runOnCopy = [&](bool isRegion) {
    cv::Mat_<cv::Vec3f> frame(rows + 2, columns + 5);
    cv::Mat_<cv::Vec3f> region =
        isRegion ? frame(cv::Rect(3, 1, columns, rows)) : cv::Mat_<cv::Vec3f>(rows, columns);
    cloud.points().copyTo(region);
    PointCloud copy(region, cloud.isOrganized());
    cloud.state().copyTo(copy.state());
    filter(copy);
    return cv::Mat_<uchar>(copy.state().clone());
  };
  std::vector<cv::Mat_<uchar>> others{runOnCopy(true)};
  int const threads = cv::getNumThreads();
  for (int const count : {1, 2, 8}) {
    cv::setNumThreads(count);
    others.push_back(runOnCopy(false));
  }
  cv::setNumThreads(threads);
  filter(cloud);
  for (cv::Mat_<uchar> const& other : others) {
    expectSameStates(cloud, other);
  }
}

cv::Mat_<uchar> savedStates(PointCloud const& cloud) {
  PointCloud saved(cloud);
  saved.state() = cloud.state().clone();
  saved.saveState();
  return saved.state();
}

/// No log of how long each of the many octrees took.
class Cleaning : public testing::Test {
protected:
  void SetUp() override { System::set("EnableDebugMode", false); }
  void TearDown() override { System::set("EnableDebugMode", true); }
};

TEST_F(Cleaning, KeepsPointsAtTheEndsOfTheDepthRange) {
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

TEST_F(Cleaning, DepthStepsAreDistancesInSpaceToFourNeighbours) {
  // 0 and a distance that some neighbours have exactly are the edges of the comparison.
  float const exact = static_cast<float>(std::sqrt(1.0 + 1.0));
  for (float const maxStep : {1.5F, 0.9F, exact, 0.0F, -1.0F, 30.0F, 1e-20F, 1e20F}) {
    for (float const noise : {0.1F, 0.0F}) {
      PointCloud cloud = scan(noise);
      cloud.points()(10, 10) = {10, 10, 50};
      cloud.points()(10, 11) = {11, 10, 51};
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

TEST_F(Cleaning, BorderIsRemovedWhateverItsState) {
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

TEST_F(Cleaning, ErosionLooksAtSevenNeighbours) {
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

TEST_F(Cleaning, ErosionIsTheSameInAnyOrder) {
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

TEST_F(Cleaning, GridFiltersLeaveUnorganizedCloudsAlone) {
  PointCloud cloud = heap();
  cv::Mat_<uchar> const before = cloud.state().clone();
  cloud.filterByDz(0.1F);
  cloud.filterBorder(3);
  cloud.filterOutlier();
  EXPECT_EQ(cloud.filterSmallClusterOrganized(0.1F, 100), 0);
  expectSameStates(cloud, before);
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

TEST_F(Cleaning, GridClustersAreThoseOfAFloodFill) {
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

TEST_F(Cleaning, MillionPointsOnOneSpotTakeNoTime) {
  PointCloud cloud(cv::Mat_<cv::Vec3f>(1000, 1000, cv::Vec3f(1, 2, 3)), true);
  cloud.points()(0, 0) = {0, 0, 0};
  EXPECT_EQ(cloud.filterSmallCluster(0.1F, 1000), 1);
  EXPECT_EQ(cloud.clean(0.1F, 2), 0);
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
