// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/pointcloud/measured_count.hpp>

#include <limits>

#include <gtest/gtest.h>

namespace vorn::mv {
namespace {

TEST(MeasuredCount, LeavesOutEmptyCellsAndDeletedPoints) {
  cv::Mat_<cv::Vec3f> points(4, 5, cv::Vec3f(1, 2, 3));
  points(0, 0)[0] = std::numeric_limits<float>::quiet_NaN();
  points(1, 1)[1] = std::numeric_limits<float>::infinity();
  points(2, 2)[2] = -std::numeric_limits<float>::infinity();
  PointCloud cloud(points, true);
  EXPECT_EQ(cloud.presentCount(), 20U);
  EXPECT_EQ(measuredCount(cloud), 17U);
  cloud.state()(0, 0) = 255; // an empty cell that is deleted too
  cloud.state()(3, 3) = 1;
  EXPECT_EQ(cloud.presentCount(), 18U);
  EXPECT_EQ(measuredCount(cloud), 16U);
  EXPECT_EQ(measuredCount(PointCloud()), 0U);
}

} // namespace
} // namespace vorn::mv
