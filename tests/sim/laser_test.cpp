// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <opencv2/core.hpp>

#include <gtest/gtest.h>

#include "sim/demo.hpp"
#include "sim/laser.hpp"

namespace vorn::sim {
namespace {

/// A laser above the camera draws a level line over a plate with a block before it.
class LevelLine : public testing::Test {
protected:
  static constexpr double planeZ = 500;
  Camera camera_;
  Laser laser_ = laserTowards({0, -180, 0}, {0, 0, planeZ}, {1, 0, 0});
  Scene scene_;

  void SetUp() override {
    camera_.device = Device({800, 800}, {199.5, 149.5}, {-0.1, 0.05, 0, 0, 0}, {400, 300});
    laser_.sigma = 0.9;
    Object plate;
    plate.shape = Rectangle{{300, 300}};
    plate.world_from_object.translation = {0, 0, planeZ};
    Object block = plate;
    block.label = 2;
    block.shape = Box{{30, 60, 20}};
    scene_ = Scene({plate, block});
  }
};

TEST_F(LevelLine, TruthIsOnThePlaneOnTheRayAndOnTheSurface) {
  constexpr double exactMm = 1e-5;
  // The sheet contains the x axis's direction, the laser and the point aimed at.
  cv::Vec3d const normal = cv::normalize(cv::Vec3d(0, planeZ, -180));
  auto const points = laserTruth(camera_, laser_, scene_);
  int onBlock = 0;
  int column = -1;
  for (LaserPoint const& point : points) {
    cv::Vec3d const& p = point.x_in_cam;
    EXPECT_NEAR(normal.dot(p - cv::Vec3d(0, -180, 0)), 0, exactMm);
    EXPECT_NEAR(cv::norm(camera_.device.ray(point.pixel).cross(p)), 0, 1e-3);
    bool const block = std::abs(p[0]) <= 30;
    EXPECT_NEAR(p[2], block ? planeZ - 20 : planeZ, exactMm);
    onBlock += block ? 1 : 0;
    EXPECT_GT(point.pixel.x, column);
    column = cvRound(point.pixel.x);
    EXPECT_EQ(point.pixel.x, column);
  }
  EXPECT_EQ(points.size(), 400U);
  EXPECT_NEAR(onBlock, 60 * 800 / (planeZ - 20), 1.5);
}

TEST_F(LevelLine, ImageShowsAGaussianStripeAroundTheTruth) {
  camera_.sensor.ambient = 0;
  cv::Mat const image = exposeLasers(camera_, {laser_}, scene_) - camera_.sensor.blackLevel;
  // 0.01 px: light falls off by a thousandth from row to row across the stripe.
  constexpr double centrePx = 0.01;
  constexpr double widthShare = 0.02;
  for (LaserPoint const& point : laserTruth(camera_, laser_, scene_)) {
    int const x = cvRound(point.pixel.x);
    if (x % 40 != 5) {
      continue;
    }
    double sum = 0;
    double first = 0;
    double second = 0;
    for (int y = cvRound(point.pixel.y) - 12; y <= cvRound(point.pixel.y) + 12; ++y) {
      double const light = static_cast<double>(image.at<float>(y, x));
      sum += light;
      first += light * y;
      second += light * y * y;
    }
    double const centre = first / sum;
    EXPECT_NEAR(centre, point.pixel.y, centrePx);
    // The sheet meets the plate under a slant; pixel and lens blur widen the stripe further.
    double const slant = std::cos(std::atan2(180.0, planeZ));
    double const onPixels = 0.9 / slant * 800 / point.x_in_cam[2];
    double const expected = std::sqrt(onPixels * onPixels + 0.55 * 0.55 + 1.0 / 12);
    EXPECT_NEAR(std::sqrt(second / sum - centre * centre), expected, widthShare * expected) << x;
  }
}

TEST_F(LevelLine, ABlockThrowsItsShadow) {
  // From the side the block hides the plate behind it: 20 mm high, the light 45 degrees flat.
  Laser const side = laserTowards({-500, 0, 0}, {0, 0, planeZ}, {1, 0, 0});
  bool isLitBehind = false;
  for (LaserPoint const& point : laserTruth(camera_, side, scene_)) {
    bool const plate = std::abs(point.x_in_cam[2] - planeZ) < 1e-6;
    EXPECT_FALSE(plate && point.x_in_cam[0] > 30.0 && point.x_in_cam[0] < 48.0) << point.x_in_cam;
    isLitBehind = isLitBehind || (plate && point.x_in_cam[0] > 52.0);
  }
  EXPECT_TRUE(isLitBehind) << "the shadow ends";
}

} // namespace
} // namespace vorn::sim
