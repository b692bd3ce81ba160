// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/pointcloud/octree.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <opencv2/core.hpp>
#include <sstream>

#include <gtest/gtest.h>

#include "support/point_sets.hpp"
#include "support/reference_octree.hpp"

namespace vorn::mv {
namespace {

using test::NamedPoints;
using L1 = Distance<cv::Vec3f>::L1;
using L2 = Distance<cv::Vec3f>::L2;
using LInf = Distance<cv::Vec3f>::LInf;
using ListL1 = Distance<cv::Point3f>::L1;
using ListL2 = Distance<cv::Point3f>::L2;

class OctreeOverDifficultPoints : public testing::TestWithParam<NamedPoints> {
protected:
  std::vector<cv::Vec3f> const& points() const { return GetParam().points; }

  GridOctree gridTree(std::size_t bucketCapacity) const {
    GridOctree tree;
    tree.init(test::asGrid(points(), 1), GridOctree::Param(bucketCapacity, true, 0.0F));
    return tree;
  }

  /// Some of the points, places between them, and one outside.
  std::vector<cv::Vec3f> queries() const {
    std::vector<cv::Vec3f> queries;
    std::size_t const step = points().size() / 20 + 1;
    for (std::size_t i = 0; i < points().size(); i += step) {
      queries.push_back(points()[i]);
      queries.push_back((points()[i] + points()[i / 2]) * 0.5F);
    }
    queries.push_back(points().front() * 2.0F + cv::Vec3f(1.0F, 2.0F, 3.0F));
    return queries;
  }

  std::vector<float> radii(GridOctree const& tree) const {
    std::vector<float> radii{0.0F, 1.0F, 2.0F, -1.0F};
    for (float const share : {0.01F, 0.1F, 0.5F, 4.0F}) {
      radii.push_back(share * tree.octants().front().halfSize);
    }
    return radii;
  }

  template <class Kind>
  void expectReferenceNeighbours() const {
    for (std::size_t const bucketCapacity : {2U, 32U}) {
      GridOctree const tree = gridTree(bucketCapacity);
      test::ReferenceOctree const reference(points(), bucketCapacity, 0.0F);
      for (cv::Vec3f const& query : queries()) {
        for (float const radius : radii(tree)) {
          std::vector<unsigned> expected = reference.search<Kind>(query, radius);
          std::vector<unsigned> found;
          ASSERT_EQ(tree.radiusNeighborsSearchRecursive<Kind>(query, radius, found), expected.size());
          ASSERT_EQ(found, expected) << cv::Mat(query) << " radius " << radius;
          ASSERT_EQ(tree.radiusNeighborsSearch<Kind>(query, radius, found), expected.size());
          std::sort(expected.begin(), expected.end());
          std::sort(found.begin(), found.end());
          ASSERT_EQ(found, expected) << cv::Mat(query) << " radius " << radius;
          ASSERT_EQ(tree.radiusNeighborsCount<Kind>(query, radius), expected.size());
        }
      }
    }
  }

  template <class Kind>
  void expectNearest() const {
    GridOctree const tree = gridTree(8);
    for (cv::Vec3f const& query : queries()) {
      std::vector<float> distanceOf;
      for (cv::Vec3f const& point : points()) {
        cv::Vec3f const d = point - query;
        distanceOf.push_back(Kind::between(d[0], d[1], d[2]));
      }
      std::vector<float> expected = distanceOf;
      std::sort(expected.begin(), expected.end());
      for (int const k : {1, 7, 64, 65, 150, 100000}) { // 64 are held in order, more in heaps
        std::vector<unsigned> indices{7, 7};
        std::vector<float> distances{7.0F};
        std::size_t const size = std::min(points().size(), static_cast<std::size_t>(k));
        ASSERT_EQ(tree.knnSearch<Kind>(query, k, indices, distances), size);
        ASSERT_EQ(distances, std::vector<float>(expected.begin(), expected.begin() + static_cast<int>(size)));
        for (std::size_t i = 0; i < size; ++i) {
          ASSERT_EQ(distanceOf[indices[i]], distances[i]);
        }
        std::sort(indices.begin(), indices.end());
        ASSERT_EQ(std::unique(indices.begin(), indices.end()), indices.end());
      }
    }
  }
};

TEST_P(OctreeOverDifficultPoints, IsTheTreeOfTheRules) {
  for (std::size_t const bucketCapacity : {1U, 4U, 32U}) {
    for (float const minHalfSize : {0.0F, 0.02F}) {
      GridOctree tree;
      tree.init(test::asGrid(points(), 1), GridOctree::Param(bucketCapacity, false, minHalfSize));
      std::ostringstream text;
      std::ostringstream expected;
      tree.print(text);
      test::ReferenceOctree(points(), bucketCapacity, minHalfSize).print(expected);
      ASSERT_TRUE(text.str() == expected.str()) << "bucket capacity " << bucketCapacity;
    }
  }
}

TEST_P(OctreeOverDifficultPoints, FindsTheNeighboursOfTheRulesL1) {
  expectReferenceNeighbours<L1>();
}
TEST_P(OctreeOverDifficultPoints, FindsTheNeighboursOfTheRulesL2) {
  expectReferenceNeighbours<L2>();
}
TEST_P(OctreeOverDifficultPoints, FindsTheNeighboursOfTheRulesLInf) {
  expectReferenceNeighbours<LInf>();
}

TEST_P(OctreeOverDifficultPoints, FindsTheNearestL1) {
  expectNearest<L1>();
}
TEST_P(OctreeOverDifficultPoints, FindsTheNearestL2) {
  expectNearest<L2>();
}
TEST_P(OctreeOverDifficultPoints, FindsTheNearestLInf) {
  expectNearest<LInf>();
}

INSTANTIATE_TEST_SUITE_P(Kinds, OctreeOverDifficultPoints, testing::ValuesIn(test::difficultPointSets()),
                         [](auto const& instance) {
                           std::string name = instance.param.name;
                           std::replace(name.begin(), name.end(), ' ', '_');
                           return name;
                         });

TEST(Octree, FindsWhatBruteForceFindsAwayFromTheRadiusItself) {
  std::vector<cv::Vec3f> const points = test::randomPoints(20000, 0.0F, 1.0F);
  GridOctree tree;
  tree.init(test::asGrid(points, 100));
  for (std::size_t q = 0; q < points.size(); q += 500) {
    std::vector<unsigned> expected;
    for (unsigned i = 0; i < points.size(); ++i) {
      cv::Vec3f const d = points[i] - points[q];
      if (d.dot(d) < 0.2F * 0.2F) {
        expected.push_back(i);
      }
    }
    std::vector<unsigned> found;
    tree.radiusNeighborsSearch<L2>(points[q], 0.2F, found);
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, expected);
  }
}

/// Expects what counts and searches find in balls whose surface goes through points to be right to the last
/// bit of the radius. The recursive search looks at each point, the others only where they must.
template <class Kind>
void expectExactSurfaces(std::vector<cv::Vec3f> const& points, bool isSquared) {
  GridOctree tree;
  tree.init(test::asGrid(points, 1));
  std::vector<unsigned> found;
  for (std::size_t q = 0; q < points.size(); q += 40) {
    for (std::size_t p = q % 7; p < points.size(); p += 97) {
      cv::Vec3f const d = points[p] - points[q];
      float const distance = Kind::between(d[0], d[1], d[2]);
      float const radius = isSquared ? std::sqrt(distance) : distance;
      for (float const end : {0.0F, radius, 2.0F * radius}) {
        float const nearly = std::nextafter(radius, end);
        std::size_t const expected = tree.radiusNeighborsSearchRecursive<Kind>(points[q], nearly, found);
        ASSERT_EQ(tree.radiusNeighborsCount<Kind>(points[q], nearly), expected) << "radius " << nearly;
        ASSERT_EQ(tree.radiusNeighborsSearch<Kind>(points[q], nearly, found), expected)
            << "radius " << nearly;
      }
    }
  }
}

TEST(Octree, IsExactToTheLastBitOfTheRadius) {
  for (float const scale : {1.0F, 1e-22F, 1e19F}) {
    for (float const origin : {0.0F, 500.0F}) {
      std::vector<cv::Vec3f> const points = test::randomPoints(2000, origin * scale, (origin + 1.0F) * scale);
      expectExactSurfaces<L1>(points, false);
      expectExactSurfaces<L2>(points, true);
      expectExactSurfaces<LInf>(points, false);
    }
  }
}

TEST(Octree, CountsAPointAtTheRadiusOnlyWithItsWholeOctant) {
  std::vector<cv::Point3f> const points{{0, 0, 0}, {3, 4, 0}};
  ListOctree leaf;
  leaf.init(points, ListOctree::Param(32));
  EXPECT_EQ(leaf.radiusNeighborsCount<ListL2>({0, 0, 0}, 5.0F), 1U);
  ListOctree heap;
  heap.init(std::vector<cv::Point3f>(100, {3, 4, 0}), ListOctree::Param(32, true));
  EXPECT_EQ(heap.octants().size(), 1U);
  EXPECT_EQ(heap.radiusNeighborsCount<ListL2>({0, 0, 0}, 5.0F), 100U);
}

TEST(Octree, NegativeLeastSizeEndsAtCubesWithoutSize) {
  std::vector<cv::Point3f> const points(100, {3, 4, 0});
  ListOctree tree;
  tree.init(points, ListOctree::Param(32, false, -1.0F));
  EXPECT_EQ(tree.octants().size(), 1U);
  EXPECT_EQ(tree.radiusNeighborsCount<Distance<cv::Point3f>::L2>({3, 4, 1}, 1.5F), points.size());
}

TEST(Octree, SinglePointIsALeafWhateverTheCapacity) {
  cv::Mat_<cv::Vec3f> const points = test::asGrid(test::randomPoints(100, 0, 1), 10);
  GridOctree none;
  none.init(points, GridOctree::Param(0));
  GridOctree one;
  one.init(points, GridOctree::Param(1));
  EXPECT_EQ(none.octants().size(), one.octants().size());
  EXPECT_EQ(none.radiusNeighborsCount<L2>(points(3, 3), 0.2F),
            one.radiusNeighborsCount<L2>(points(3, 3), 0.2F));
}

TEST(Octree, IgnoresPointsThatAreNoNumbers) {
  constexpr float infinite = std::numeric_limits<float>::infinity();
  std::vector<cv::Point3f> const points{
      {0, 0, 0}, {test::notANumber, 0, 0}, {1, 0, 0}, {0, -infinite, 0}, {0, 0, infinite}};
  ListOctree tree;
  tree.init(points, ListOctree::Param(1));
  EXPECT_EQ(tree.octants().front().count, 2U);
  std::vector<unsigned> indices;
  std::vector<float> distances;
  EXPECT_EQ(tree.radiusNeighborsCount<ListL1>({0, 0, 0}, infinite), 2U);
  EXPECT_EQ(tree.knnSearch<ListL2>({0, 0, 0}, 5, indices, distances), 2U);
  for (cv::Point3f const& query : {points[1], points[3], points[4]}) {
    EXPECT_EQ(tree.radiusNeighborsSearch<ListL2>(query, infinite, indices), 0U);
    EXPECT_EQ(tree.knnSearch<ListL2>(query, 5, indices, distances), 0U);
  }
  tree.init(std::vector<cv::Point3f>(3, points[1]), ListOctree::Param(1, true));
  EXPECT_TRUE(tree.isEmpty());
}

TEST(Octree, EmptyTreeFindsNothing) {
  GridOctree tree;
  tree.init(cv::Mat_<cv::Vec3f>());
  std::vector<unsigned> indices{1};
  std::vector<float> distances{1.0F};
  EXPECT_EQ(tree.knnSearch<L2>({0, 0, 0}, 1, indices, distances), 0U);
  EXPECT_TRUE(indices.empty() && distances.empty());
  EXPECT_EQ(tree.radiusNeighborsSearchRecursive<L2>({0, 0, 0}, 1.0F, indices), 0U);
  tree.init(test::asGrid(test::randomPoints(100, 0, 1), 10));
  EXPECT_EQ(tree.knnSearch<L2>({0, 0, 0}, -1, indices, distances), 0U);
  tree.clear();
  EXPECT_EQ(tree.radiusNeighborsCount<LInf>({0, 0, 0}, 10.0F), 0U);
}

TEST(Octree, NumbersTheCellsOfARegionOfAMatrix) {
  cv::Mat_<cv::Vec3f> const whole = test::asGrid(test::randomPoints(6000, 0, 1), 60);
  cv::Mat_<cv::Vec3f> const region = whole(cv::Rect(7, 5, 41, 80));
  GridOctree strided;
  GridOctree copied;
  strided.init(region);
  copied.init(region, GridOctree::Param(32, true));
  std::vector<unsigned> found;
  std::vector<unsigned> expected;
  for (int column = 0; column < region.cols; ++column) {
    strided.radiusNeighborsSearch<L2>(region(3, column), 0.1F, found);
    copied.radiusNeighborsSearch<L2>(region(3, column), 0.1F, expected);
    ASSERT_EQ(found, expected);
  }
}

TEST(Octree, OwnCopyOutlivesTheContainer) {
  std::vector<cv::Point3f> points{{0, 0, 0}, {1, 0, 0}};
  ListOctree tree;
  tree.init(points, ListOctree::Param(32, true));
  points[1].x = 100;
  ListOctree const moved = std::move(tree);
  EXPECT_EQ(moved.radiusNeighborsCount<ListL2>({1, 0, 0}, 0.5F), 1U);
}

TEST(Octree, OwnCopyOfAGridOutlivesItsPoints) {
  cv::Mat_<cv::Vec3f> grid = test::asGrid(test::randomPoints(1000, -1.0F, 1.0F), 10);
  GridOctree tree;
  tree.init(grid, GridOctree::Param(32, true));
  std::vector<unsigned> indices;
  std::vector<float> before;
  std::vector<float> after;
  tree.knnSearch<L2>({0, 0, 0}, 10, indices, before);
  grid.setTo(cv::Scalar::all(100.0));
  tree.knnSearch<L2>({0, 0, 0}, 10, indices, after);
  EXPECT_EQ(after, before);
}

TEST(Octree, SurvivesCoordinatesAtTheEndOfTheRange) {
  constexpr float huge = std::numeric_limits<float>::max();
  std::vector<cv::Point3f> points(100, {-huge, 0, 0});
  points.resize(200, {huge, 0, 0});
  ListOctree tree;
  tree.init(points);
  EXPECT_EQ(tree.octants().front().count, 200U);
}

} // namespace
} // namespace vorn::mv
