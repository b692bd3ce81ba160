// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/// Figures of how a target was held, by closed forms.
#include "calib/adjust/view_statistics.hpp"

#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

namespace vorn::mv {
namespace {

cv::Matx44d turned(int axis, double degrees) {
  double const c = std::cos(degrees * CV_PI / 180);
  double const s = std::sin(degrees * CV_PI / 180);
  int const a = (axis + 1) % 3;
  int const b = (axis + 2) % 3;
  cv::Matx44d pose = cv::Matx44d::eye();
  pose(a, a) = pose(b, b) = c;
  pose(a, b) = -s;
  pose(b, a) = s;
  return pose;
}

TEST(ViewStatistics, TiltIsTheGreatestAngleBetweenNormals) {
  EXPECT_EQ(greatestTiltOf({}), 0);
  EXPECT_NEAR(greatestTiltOf({turned(2, 0), turned(2, 80)}), 0, 1e-6) << "about the normal";
  EXPECT_NEAR(greatestTiltOf({turned(0, 20), turned(0, -25), turned(0, 10)}), 45, 1e-9);
  // About two axes: the cosine of the angle between the normals is the product of both.
  double const between = std::acos(std::cos(CV_PI / 6) * std::cos(CV_PI / 4)) * 180 / CV_PI;
  EXPECT_NEAR(greatestTiltOf({turned(0, 30), turned(1, 45)}), between, 1e-9);
  // Turned about the sight after the tilt, it is another tilt: normals lie on a cone.
  cv::Matx44d const spun = turned(2, 90) * turned(0, 30);
  EXPECT_NEAR(greatestTiltOf({turned(0, 30), spun}),
              std::acos(std::cos(CV_PI / 6) * std::cos(CV_PI / 6)) * 180 / CV_PI, 1e-9);
}

TEST(ViewStatistics, CoverageCountsCellsOfEightBySix) {
  float const nan = std::numeric_limits<float>::quiet_NaN();
  cv::Size const size(800, 600);
  AdjustmentView view;
  view.points0 = {{0, 0}, {99.9F, 99.9F}, {100, 0}, {799.9F, 599.9F}, {800, 300}, {-0.1F, 300}, {nan, nan}};
  EXPECT_DOUBLE_EQ(coverageOf({view}, 0, size), 3.0 / 48) << "what lies outside is in no cell";
  AdjustmentView other;
  other.points0 = {{50, 50}, {450, 350}};
  EXPECT_DOUBLE_EQ(coverageOf({view, other}, 0, size), 4.0 / 48);
}

} // namespace
} // namespace vorn::mv
