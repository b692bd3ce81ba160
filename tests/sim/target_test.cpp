// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <opencv2/core.hpp>

#include <gtest/gtest.h>

#include "sim/demo.hpp"
#include "sim/render.hpp"

namespace vorn::sim {
namespace {

/// A lamp so far away that it lights a target evenly.
Projector distantLamp() {
  constexpr double far = 1e7;
  Projector lamp;
  lamp.device = Device({2e6, 2e6}, {50, 50}, {}, {101, 101});
  lamp.world_from_proj.translation = {0, 0, -far};
  lamp.referenceDistance = lamp.focus = far;
  return lamp;
}

double radiusInPitches(cv::Point const& index) {
  bool const marker = index == cv::Point(0, 0) || index == cv::Point(1, 0) || index == cv::Point(0, 1);
  return marker ? 0.375 : 0.25;
}

class FrontalTarget : public testing::Test {
protected:
  static constexpr double focal = 1400;
  static constexpr double distance = 560;
  static constexpr double pitchPx = 15 * focal / distance;
  static constexpr int width = 400;
  static constexpr int height = 300;
  Target const target_ = demoTarget();
  /// Turned in its plane by an odd angle, so that dots fall on pixels in every way.
  Pose const world_from_target_ = Pose::fromDegrees({2.3, -1.7, distance}, {0, 0, 17});
  Camera camera_;
  std::vector<DotTruth> dots_;

  void SetUp() override {
    camera_.device = Device({focal, focal}, {200.3, 150.8}, {}, {width, height});
    camera_.sensor.exposure = 1;
    camera_.sensor.ambient = 0;
    dots_ = dotTruth(target_, world_from_target_, camera_, nullptr);
  }

  /// The share of each pixel that dots cover, as the camera sees it.
  cv::Mat coverage() const {
    Projector const lamp = distantLamp();
    cv::Mat const white(lamp.device.resolution(), CV_8UC1, cv::Scalar(255));
    ProjectorView const view(camera_, lamp, Scene({targetObject(target_, world_from_target_)}));
    cv::Mat const albedo = (view.expose({white})[0] - camera_.sensor.blackLevel) / 255;
    return (albedo - target_.groundAlbedo) / (target_.grid.dotAlbedo - target_.groundAlbedo);
  }

  /// How far inside the image a dot ends, pixels.
  static double margin(cv::Point2d const& pixel, double radius) {
    return std::min({pixel.x, pixel.y, width - 1 - pixel.x, height - 1 - pixel.y}) + 0.5 - radius;
  }
};

TEST_F(FrontalTarget, DotsStandWhereTheTruthSaysAndAreAsLarge) {
  // A thirtieth of what a detector may be off.
  constexpr double centrePx = 5e-4;
  constexpr double areaShare = 2e-4;
  // Between the largest dot's blurred edge and that of a marker beside it.
  constexpr double reach = 0.5 * pitchPx;
  cv::Mat const covered = coverage();
  int measured = 0;
  for (DotTruth const& dot : dots_) {
    if (!dot.camera || margin(*dot.camera, reach) < 1) {
      continue;
    }
    double area = 0;
    cv::Point2d sum;
    for (int y = cvFloor(dot.camera->y - reach); y <= dot.camera->y + reach; ++y) {
      for (int x = cvFloor(dot.camera->x - reach); x <= dot.camera->x + reach; ++x) {
        cv::Point2d const off = cv::Point2d(x, y) - *dot.camera;
        if (cv::norm(off) < reach) {
          double const share = static_cast<double>(covered.at<float>(y, x));
          area += share;
          sum += share * off;
        }
      }
    }
    double const radius = radiusInPitches(dot.index) * pitchPx;
    EXPECT_NEAR(cv::norm(sum / area), 0, centrePx) << dot.index;
    EXPECT_NEAR(area / (CV_PI * radius * radius), 1, areaShare) << dot.index;
    ++measured;
  }
  EXPECT_GT(measured, 50);
}

TEST_F(FrontalTarget, DotsCutByTheImageBorderHaveNoCameraPoint) {
  ASSERT_EQ(dots_.size(), 21U * 15U);
  for (DotTruth const& dot : dots_) {
    cv::Vec3d const p = world_from_target_ * cv::Vec3d(dot.index.x * 15.0, dot.index.y * 15.0, 0);
    cv::Point2d const pixel(200.3 + focal * p[0] / distance, 150.8 + focal * p[1] / distance);
    double const radius = radiusInPitches(dot.index) * pitchPx;
    // Eight points stand for the rim; between them it reaches 8 % of its radius further.
    if (std::abs(margin(pixel, radius)) > 0.1 * radius) {
      EXPECT_EQ(dot.camera.has_value(), margin(pixel, radius) > 0) << dot.index;
    }
    if (dot.camera) {
      EXPECT_NEAR(cv::norm(*dot.camera - pixel), 0, 1e-9);
    }
  }
}

} // namespace
} // namespace vorn::sim
