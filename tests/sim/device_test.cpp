// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include <gtest/gtest.h>

#include "sim/demo.hpp"

namespace vorn::sim {
namespace {

// The rounding of pixel coordinates near 1000 in double precision, with room for a few operations.
constexpr double roundingPx = 1e-9;

TEST(Device, RayLeadsBackToItsPixel) {
  Rig const rig = demoRig();
  for (Device const& device : {rig.camera.device, rig.projector.device}) {
    cv::Size const size = device.resolution();
    for (double y : {-0.5, 0.3 * size.height, size.height - 0.5}) {
      for (double x : {-0.5, 0.7 * size.width, size.width - 0.5}) {
        auto const pixel = device.project(550.0 * device.ray({x, y}));
        ASSERT_TRUE(pixel.has_value());
        EXPECT_NEAR(pixel->x, x, roundingPx);
        EXPECT_NEAR(pixel->y, y, roundingPx);
      }
    }
  }
}

TEST(Device, AgreesWithOpenCv) {
  Device const device = demoRig().camera.device;
  std::vector<cv::Point3d> const points = {{-180, 130, 560}, {10, -4, 300}, {150, 90, 700}};
  std::vector<cv::Point2d> expected;
  cv::projectPoints(points, cv::Vec3d(), cv::Vec3d(), device.matrix(), device.distortion(), expected);
  for (std::size_t i = 0; i < points.size(); ++i) {
    auto const pixel = device.project(cv::Vec3d(points[i].x, points[i].y, points[i].z));
    ASSERT_TRUE(pixel.has_value());
    EXPECT_NEAR(cv::norm(*pixel - expected[i]), 0.0, roundingPx);
  }
}

TEST(Device, SeesNothingBehindItselfOrBeyondTheFoldOfItsLens) {
  Device const device({1000, 1000}, {500, 400}, {-0.3, 0, 0, 0, 0}, {1000, 800});
  EXPECT_FALSE(device.project({0, 0, -100}).has_value());
  // r (1 - 0.3 r^2) grows up to r = 1.054; r = 1.8 would fall back into the image.
  EXPECT_TRUE(device.project({104, 0, 100}).has_value());
  EXPECT_FALSE(device.project({107, 0, 100}).has_value());
  EXPECT_FALSE(device.project({180, 0, 100}).has_value());
}

TEST(Pose, InverseAndProductFollowTheFrames) {
  Pose const a_from_b = Pose::fromDegrees({10, -20, 30}, {20, -35, 50});
  Pose const b_from_c = Pose::fromDegrees({-4, 5, 6}, {-70, 12, 8});
  cv::Vec3d const x_in_c(1, 2, 3);
  cv::Vec3d const x_in_a = (a_from_b * b_from_c) * x_in_c;
  EXPECT_NEAR(cv::norm(x_in_a - a_from_b * (b_from_c * x_in_c)), 0.0, 1e-12);
  EXPECT_NEAR(cv::norm(a_from_b.inverse() * x_in_a - b_from_c * x_in_c), 0.0, 1e-12);
  // Rotating by 90 degrees about z takes x to y.
  EXPECT_NEAR(cv::norm(Pose::fromDegrees({}, {0, 0, 90}) * cv::Vec3d(1, 0, 0) - cv::Vec3d(0, 1, 0)), 0.0,
              1e-12);
}

} // namespace
} // namespace vorn::sim
