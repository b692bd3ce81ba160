// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/pointcloud/cloud_filters.hpp>

#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>

#include "support/expect_error.hpp"
#include "support/point_sets.hpp"

namespace vorn::mv::pc {
namespace {

/// Random points in a cube around z = 400 with something to do for every filter.
PointCloud cube() {
  cv::Mat_<cv::Vec3f> points = test::asGrid(test::randomPoints(8000, -6.0F, 6.0F), 100);
  points += cv::Scalar(0, 0, 400);
  points(1, 1)[2] = 800.0F;
  points(2, 2)[0] = test::notANumber;
  return PointCloud(points, true);
}

void expectSameStates(PointCloud const& a, PointCloud const& b) {
  EXPECT_EQ(cv::countNonZero(a.state() != b.state()), 0);
  EXPECT_GT(cv::countNonZero(a.state()), 0);
}

/// Keeps what the filters write to standard output out of the test's.
class CloudFilters : public testing::Test {
protected:
  void SetUp() override { testing::internal::CaptureStdout(); }
  void TearDown() override { testing::internal::GetCapturedStdout(); }
};

TEST_F(CloudFilters, DoWhatTheCloudsOwnOperationsDo) {
  PointCloud expected = cube();
  PointCloud cloud = cube();
  DzFilter dz;
  dz["Dz"] = 9.0;
  dz(cloud);
  expected.filterByDz(9.0F);
  expectSameStates(cloud, expected);
  ZRangeFilter range;
  range["Zmax"] = 404.0;
  range(cloud);
  expected.filterByZRange(300.0F, 404.0F);
  expectSameStates(cloud, expected);
  OutlierFilter outlier;
  outlier["MinNeighbourCount"] = 12;
  testing::internal::GetCapturedStdout();
  testing::internal::CaptureStdout();
  outlier(cloud);
  std::string const text = testing::internal::GetCapturedStdout();
  testing::internal::CaptureStdout();
  EXPECT_EQ(text, "Removed " + std::to_string(expected.clean(1.0F, 12)) + " points.\n");
  expectSameStates(cloud, expected);
  SmallClusterFilter cluster;
  cluster["Radius"] = 0.6;
  cluster(cloud);
  expected.filterSmallCluster(0.6F, 500);
  expectSameStates(cloud, expected);
}

TEST_F(CloudFilters, ReadTheirPropertiesWithinTheirRanges) {
  ZRangeFilter range;
  EXPECT_EQ(range.getPropertyNames(), (std::vector<std::string>{"Zmin", "Zmax"}));
  EXPECT_THROW(range["Zmin"] = 501.0, Exception);
  EXPECT_THROW(range["Zmax"] = 299.0, Exception);
  SmallClusterFilter cluster;
  EXPECT_THROW(cluster["MinClusterSize"] = 499, Exception);
  EXPECT_THROW(UniformSampler()["Radius"] = 0.04, Exception);
}

TEST_F(CloudFilters, PlaneRemovalDeletesThePointsOnAPlane) {
  PlaneRemovalFilter filter;
  PointCloud cloud = cube();
  EXPECT_THROW(filter(cloud), Exception);
  Plane3f const plane(cv::Point3f(0, 0, 401), cv::Vec3f(1, 0, 2));
  filter["Tolerance"] = 0.5;
  filter(cloud, plane);
  int deleted = 0;
  for (int i = 0; i < static_cast<int>(cloud.pointCount()); ++i) {
    cv::Vec3d const p(cloud.points()(i));
    double const distance = std::abs(p[0] + 2.0 * (p[2] - 401.0)) / std::sqrt(5.0);
    // The plane reckons in float: points within this of the edge may fall to either side.
    constexpr double rounding = 1e-4;
    if (std::abs(distance - 0.5) > rounding) {
      EXPECT_EQ(cloud.state()(i), distance < 0.5 ? 1 : 0) << i;
      deleted += distance < 0.5 ? 1 : 0;
    }
  }
  EXPECT_GT(deleted, 100);
}

TEST_F(CloudFilters, PlaneRemovalTakesPointsAtTheToleranceAndLeavesDeletedOnes) {
  cv::Mat_<cv::Vec3f> points(1, 5, cv::Vec3f(1, 2, 400));
  points(1)[2] = 400.5F;
  points(2)[2] = std::nextafter(400.5F, 500.0F);
  PointCloud cloud(points, false);
  cloud.state()(3) = 3;
  cloud.state()(4) = 255;
  PlaneRemovalFilter filter;
  filter["Tolerance"] = 0.5;
  filter(cloud, Plane3f(cv::Point3f(0, 0, 400), cv::Vec3f(0, 0, 1)));
  cv::Mat_<uchar> const expected = (cv::Mat_<uchar>(1, 5) << 1, 1, 0, 4, 255);
  EXPECT_EQ(cv::countNonZero(cloud.state() != expected), 0) << cloud.state();
}

TEST_F(CloudFilters, SamplerKeepsAPointInEveryNeighbourhoodAndNoMore) {
  constexpr double radius = 0.9;
  // Distances are compared in single precision at coordinates of 400.
  constexpr double rounding = 1e-4;
  PointCloud cloud = cube();
  cloud.state()(7, 7) = 255;
  UniformSampler sampler;
  sampler["Radius"] = radius;
  sampler(cloud);
  std::vector<cv::Vec3d> kept;
  std::vector<cv::Vec3d> dropped;
  for (int i = 0; i < static_cast<int>(cloud.pointCount()); ++i) {
    if (cv::checkRange(cv::Mat(cloud.points()(i))) && i != 707) {
      (cloud.state()(i) == 0 ? kept : dropped).emplace_back(cloud.points()(i));
    }
  }
  for (std::size_t i = 0; i < kept.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      EXPECT_GE(cv::norm(kept[i] - kept[j]), radius - rounding);
    }
  }
  for (cv::Vec3d const& point : dropped) {
    double nearest = std::numeric_limits<double>::max();
    for (cv::Vec3d const& other : kept) {
      nearest = std::min(nearest, cv::norm(point - other));
    }
    EXPECT_LE(nearest, radius + rounding);
  }
  EXPECT_GT(dropped.size(), 1000U);
  EXPECT_EQ(cloud.state()(7, 7), 255);
  EXPECT_EQ(cloud.state()(2, 2), 0) << "a point without coordinates stays";
  EXPECT_FALSE(cloud.isContinous());
  cloud.undoState();
  EXPECT_EQ(cloud.presentCount(), cloud.pointCount() - 1);
}

TEST_F(CloudFilters, RefuseACloudWhoseStatesDoNotFitItsPoints) {
  // Without the check they would read and write beyond the states.
  PointCloud cloud = cube();
  cloud.state() = cv::Mat_<uchar>(2, 2, uchar{1});
  for (std::string const& name : filters().names()) {
    std::unique_ptr<IFilter> const filter = createFilter(name);
    if (auto* const removal = dynamic_cast<PlaneRemovalFilter*>(filter.get())) {
      removal->setPlane(Plane3f(cv::Point3f(0, 0, 400), cv::Vec3f(0, 0, 1)));
    }
    EXPECT_THROW((*filter)(cloud), Exception) << name;
    EXPECT_EQ(cv::countNonZero(cloud.state() == 1), 4) << name << " opened an undo generation";
  }
}

TEST_F(CloudFilters, ChainsAreStoredAndRunAgain) {
  FilterChain<IFilter> chain;
  for (std::string const& name : filters().names()) {
    chain.push_back(createFilter(name));
    EXPECT_EQ(chain.back()->getClassName(), name);
  }
  chain[0]->getProperty("Dz") = 9.5;
  chain[2]->getProperty("MinNeighbourCount") = 13;
  dynamic_cast<PlaneRemovalFilter&>(*chain[4]).setPlane(Plane3f(cv::Point3f(0, 0, 400), cv::Vec3f(0, 0, 1)));
  chain[5]->getProperty("Radius") = 0.7;
  nlohmann::json json;
  writeFilterChain(chain, json);
  FilterChain<IFilter> const again = readFilterChain(nlohmann::json::parse(json.dump()), filters());
  PointCloud cloud = cube();
  PointCloud expected = cube();
  ASSERT_EQ(again.size(), chain.size());
  for (std::size_t i = 0; i < chain.size(); ++i) {
    (*chain[i])(expected);
    (*again[i])(cloud);
    expectSameStates(cloud, expected);
  }
  EXPECT_THROW(createFilter("vorn::mv::pc::NoFilter"), Exception);
}

TEST_F(CloudFilters, ChainNamesTheFilterWhosePlaneIsWrong) {
  for (char const* plane : {R"(3)", R"({"p": [0, 0, 1]})", R"({"p": "here", "n": [0, 0, 1]})"}) {
    auto const chain =
        nlohmann::json::parse(R"([{"class": "Dz"}, {"class": "PlaneRemoval", "properties": {"Plane": )" +
                              std::string(plane) + "}}]");
    test::expectError([&] { readFilterChain(chain, filters()); }, "Filter 2 of the chain: ");
  }
}

TEST_F(CloudFilters, PlaneRemovalReadsAllOrNothing) {
  PlaneRemovalFilter filter;
  nlohmann::json json =
      nlohmann::json::parse(R"({"Tolerance": 99, "Plane": {"p": [0, 0, 1], "n": [0, 0, 1]}})");
  EXPECT_THROW(filter.read(json), Exception);
  EXPECT_EQ(filter.getPlane().normal(), cv::Vec3f(0, 0, 0));
  json["Tolerance"] = 2.0;
  PlaneRemovalFilter const copy = filter;
  filter.read(json);
  EXPECT_EQ(filter.getPlane().point(), cv::Point3f(0, 0, 1));
  EXPECT_EQ(copy.getPlane().point(), cv::Point3f(0, 0, 0));
}

} // namespace
} // namespace vorn::mv::pc
