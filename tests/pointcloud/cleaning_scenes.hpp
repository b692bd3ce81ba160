// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <functional>
#include <limits>
#include <opencv2/core.hpp>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <vorn/core/system.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "support/point_sets.hpp"

namespace vorn::test {

using Neighbours = std::function<std::vector<unsigned>(unsigned)>;

/// Few rows and columns more than a vector register has lanes, so that loops have remainders.
constexpr int rows = 37;
constexpr int columns = 45;

/// A wavy surface on a grid with noise, steps, holes and points that are no numbers; pitch about 1.
inline mv::PointCloud scan(float noise) {
  std::mt19937 random(seed());
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
  points(5, 6)[2] = notANumber;
  points(20, 21)[0] = std::numeric_limits<float>::infinity();
  points(20, 22)[0] = std::numeric_limits<float>::infinity();
  mv::PointCloud cloud(points, true);
  for (uchar& state : cloud.state()) {
    float const draw = chance(random);
    state = draw < 0.05F ? 255 : (draw < 0.1F ? 2 : 0);
  }
  return cloud;
}

/// As large, without order, with repeated points and points at exact distances.
inline mv::PointCloud heap() {
  mv::PointCloud cloud(asGrid(latticePoints(rows * columns, 9), columns), false);
  for (int i = 0; i < columns; i += 3) {
    cloud.state()(i % rows, i) = 255;
  }
  return cloud;
}

/// Deletes small clusters of whatever neighbourhood by a flood fill from the first point on.
inline int deleteClustersPlainly(cv::Mat_<uchar>& state, Neighbours const& neighbours,
                                 std::size_t minClusterSize) {
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

inline void expectSameStates(mv::PointCloud const& cloud, cv::Mat_<uchar> const& expected) {
  EXPECT_EQ(cv::countNonZero(cloud.state() != expected), 0);
}

/// Runs a filter on the cloud, with other thread counts and on a region of a larger matrix on copies, and
/// expects the same states of all.
template <class Filter>
void runEverywhere(mv::PointCloud& cloud, Filter const& filter) {
  auto const runOnCopy = [&](bool isRegion) {
    cv::Mat_<cv::Vec3f> frame(rows + 2, columns + 5);
    cv::Mat_<cv::Vec3f> region =
        isRegion ? frame(cv::Rect(3, 1, columns, rows)) : cv::Mat_<cv::Vec3f>(rows, columns);
    cloud.points().copyTo(region);
    mv::PointCloud copy(region, cloud.isOrganized());
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

inline cv::Mat_<uchar> savedStates(mv::PointCloud const& cloud) {
  mv::PointCloud saved(cloud);
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

} // namespace vorn::test
