// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/// Stages of the target finder by themselves.

#include <algorithm>
#include <array>
#include <cmath>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/core/library.hpp>

#include "calib/target/dot_centre.hpp"
#include "calib/target/target_map.hpp"
#include "support/target_photos.hpp"

namespace vorn::mv {
namespace {

TEST(DotMeasurement, ADotMustStandOutAgainstItsOwnNoise) {
  constexpr int radius = 20;
  cv::Point const centre(40, 40);
  auto const measureWith = [&](int amplitude) {
    cv::Mat image(81, 81, CV_8U, cv::Scalar(40));
    cv::circle(image, centre, radius, cv::Scalar(100), cv::FILLED);
    // Of opposite signs from pixel to pixel, so that no mean of four shows it.
    for (int y = 0; y < image.rows; ++y) {
      for (int x = 0; x < image.cols; ++x) {
        auto& pixel = image.at<std::uint8_t>(y, x);
        if (std::hypot(x - centre.x, y - centre.y) < radius - 3) {
          pixel = static_cast<std::uint8_t>(pixel + ((x + y) % 2 == 0 ? amplitude : -amplitude));
        }
      }
    }
    return measureDot(image, centre, {cv::Matx22d::eye() * radius, 1.8}, 4);
  };
  EXPECT_TRUE(measureWith(15)) << "a quarter of the contrast";
  EXPECT_FALSE(measureWith(25));
}

TEST(LocalMap, JacobianIsTheDerivativeOfThePosition) {
  cv::Matx33d const homography(50, 3, 400, -4, 47, 300, 1e-3, -2e-3, 1);
  std::array<cv::Point2d, 6> const offset = {
      {{0.3, -0.2}, {0.4, 0.1}, {-0.2, 0.5}, {0.3, -0.4}, {0.25, 0.35}, {-0.15, 0.45}}};
  LocalMap const map(homography, {2, -1}, offset, 1);
  constexpr double step = 1e-5;
  for (cv::Point2d const& at : {cv::Point2d(2, -1), cv::Point2d(3.5, -2.25), cv::Point2d(0.5, 0.75)}) {
    cv::Matx22d const jacobian = map.jacobian(at);
    cv::Point2d const byX =
        (map.position(at + cv::Point2d(step, 0)) - map.position(at - cv::Point2d(step, 0))) / (2 * step);
    cv::Point2d const byY =
        (map.position(at + cv::Point2d(0, step)) - map.position(at - cv::Point2d(0, step))) / (2 * step);
    EXPECT_LT(cv::norm(cv::Matx22d(byX.x, byY.x, byX.y, byY.y) - jacobian), 1e-6) << at;
  }
}

class TargetOrigin : public testing::Test {
protected:
  static void SetUpTestSuite() { Library::init(); }
};

TEST_F(TargetOrigin, AMarkedTargetIsTakenBeforeALargerPlainOne) {
  sim::TargetPhoto marked = test::targetPhoto(16, 10, 30, 20);
  marked.target.grid.columns = {-3, 4};
  marked.target.grid.rows = {-3, 4};
  sim::TargetPhoto plain = test::targetPhoto(16, 10, 30, 20);
  plain.target.grid.hasMarkers = false;
  cv::Mat both;
  cv::hconcat(sim::render(plain), sim::render(marked), both);
  auto const result = test::targetDetector().detect(both);
  EXPECT_TRUE(result.isOriginMarked());
  EXPECT_EQ(result.count(), 49);
}

TEST_F(TargetOrigin, TwoMarkersAreNotEnough) {
  sim::TargetPhoto photo = test::targetPhoto(25, 0, 0, 0);
  auto const centre = photo.device.project(photo.cam_from_target * cv::Vec3d(0, photo.target.grid.pitch, 0));
  // As bright and as large as the third, but no disc.
  constexpr float side = 0.75F * 50;
  photo.overlays.push_back({{cv::Point2f(*centre), {side, side}, 0}, sim::Overlay::Shape::Box, 0.85});
  auto const result = test::targetDetector().detect(sim::render(photo));
  EXPECT_FALSE(result.isOriginMarked());
  EXPECT_GT(result.count(), 200);
}

} // namespace
} // namespace vorn::mv
