// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/pointcloud/apply_filters.hpp>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include "support/expect_error.hpp"
#include "support/watching.hpp"

namespace vorn::mv {
namespace {

using vorn::test::expectError;

/// A level grid of points a millimetre apart, one of them 5 mm above the others, and one far above.
PointCloud grid(bool organized) {
  cv::Mat_<cv::Vec3f> points(20, 30);
  for (int y = 0; y < points.rows; ++y) {
    for (int x = 0; x < points.cols; ++x) {
      points(y, x) = cv::Vec3f(static_cast<float>(x), static_cast<float>(y), 400.0F);
    }
  }
  points(7, 8)[2] = 395.0F;
  points(3, 4)[2] = 320.0F;
  return {points, organized};
}

nlohmann::json chain() {
  return nlohmann::json::parse(R"([{"class": "ZRange", "properties": {"Zmin": 350}},
      {"class": "OutlierFilter", "properties": {"Radius": 2, "MinNeighbourCount": 4}}])");
}

TEST(ApplyFilters, RunsTheChainInItsOrderOnACopy) {
  PointCloud const cloud = grid(true);
  PointCloud const cleaned = applyFilters(cloud, chain());
  EXPECT_EQ(cleaned.state()(3, 4), 255) << "removed for good by the first filter";
  EXPECT_EQ(cleaned.state()(7, 8), 1) << "deleted by the second";
  EXPECT_EQ(cleaned.presentCount(), cloud.pointCount() - 2);
  EXPECT_EQ(cloud.presentCount(), cloud.pointCount()) << "the cloud that was given is as it was";
  EXPECT_NE(cleaned.points().data, cloud.points().data);
}

TEST(ApplyFilters, SaysWhatItCannotDo) {
  nlohmann::json const dz = nlohmann::json::parse(R"([{"class": "ZRange"}, {"class": "Dz"}])");
  expectError([&] { applyFilters(grid(false), dz); },
              "Filter 2, vorn::mv::pc::DzFilter, needs a grid, but the cloud is not organized");
  EXPECT_LT(applyFilters(grid(true), dz).presentCount(), 600U);
  expectError([] { applyFilters(grid(true), nlohmann::json::parse(R"([{"class": "PlaneRemoval"}])")); },
              "Filter 1, vorn::mv::pc::PlaneRemovalFilter: ");
  expectError([] { applyFilters(grid(true), nlohmann::json::parse(R"([{"class": "Dx"}])")); }, "Dx");
}

/// Every filter that asks within, on its own cloud: stopped anywhere it leaves the states as they were, and
/// watched it does the same.
TEST(ApplyFilters, FiltersStopWithinAndLeaveTheCloud) {
  for (char const* name :
       {"OutlierFilter:Radius=2,MinNeighbourCount=4", "OutlierFilter:Radius=20,MinNeighbourCount=300",
        "SmallCluster:Radius=1.5", "UniformSampler:Radius=2.5", "ZRange:Zmin=350"}) {
    auto const filter = parseFilter(name, pc::filters());
    PointCloud expected = grid(true);
    expected.state()(9, 9) = 1;
    PointCloud const before = expected.clone();
    (*filter)(expected);
    PointCloud cloud = before.clone();
    int const stops = vorn::test::stopEverywhere(
        [&](Observer& observer) { filter->run(cloud, &observer); },
        [&] { EXPECT_EQ(cv::norm(cloud.state(), before.state(), cv::NORM_INF), 0) << name; });
    EXPECT_GT(stops, 0) << name;
    EXPECT_EQ(cv::norm(cloud.state(), expected.state(), cv::NORM_INF), 0) << name;
    EXPECT_GT(cv::norm(cloud.state(), before.state(), cv::NORM_INF), 0) << name;
  }
}

TEST(ApplyFilters, StopsWithinFiltersAndBetweenThem) {
  PointCloud const cloud = grid(true);
  int const stops =
      vorn::test::stopEverywhere([&](Observer& observer) { applyFilters(cloud, chain(), &observer); },
                                 [&] { EXPECT_EQ(cloud.presentCount(), cloud.pointCount()); });
  EXPECT_GT(stops, 8);
}

} // namespace
} // namespace vorn::mv
