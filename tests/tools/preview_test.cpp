// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "tools/scan/preview.hpp"

namespace vorn::tools {
namespace {

cv::Vec3b turbo(int value) {
  cv::Mat_<cv::Vec3b> color;
  cv::applyColorMap(cv::Mat(1, 1, CV_8U, cv::Scalar(value)), color, cv::COLORMAP_TURBO);
  return color(0, 0);
}

/// The light that a surface sends back whose unit normal is given: a third of it comes from everywhere.
double lightOf(cv::Vec3d const& normal) {
  cv::Vec3d const towardsLight = cv::normalize(cv::Vec3d(-0.35, -0.45, -0.8));
  return 0.3 + 0.7 * std::abs(normal.dot(towardsLight));
}

void expectColor(cv::Vec3b const& drawn, cv::Vec3b const& color, double light) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_NEAR(drawn[i], light * color[i], 1.0) << "channel " << i;
  }
}

/// Two plates, `spacing` mm a pixel: the left one at 500 mm, the right one at 600 mm and inclined by 45
/// degrees about y when `isRightTilted`.
cv::Mat_<cv::Vec3f> plates(float spacing, bool isRightTilted) {
  cv::Mat_<cv::Vec3f> xyz(20, 40);
  for (int y = 0; y < xyz.rows; ++y) {
    for (int x = 0; x < xyz.cols; ++x) {
      float const right = spacing * static_cast<float>(x);
      float const deeper = isRightTilted ? spacing * static_cast<float>(x - xyz.cols / 2) : 0.0F;
      xyz(y, x) =
          cv::Vec3f(right, spacing * static_cast<float>(y), x < xyz.cols / 2 ? 500.0F : 600.0F + deeper);
    }
  }
  return xyz;
}

TEST(Relief, NearIsRedAndFarIsBlue) {
  cv::Mat_<cv::Vec3b> const picture = drawRelief(plates(1.0F, false));
  double const light = lightOf({0, 0, 1});
  expectColor(picture(10, 5), turbo(255), light);
  expectColor(picture(10, 34), turbo(0), light);
}

TEST(Relief, ShadeDependsOnTheSlopeAndNotOnTheSpacing) {
  cv::Mat_<cv::Vec3b> const grey(20, 40, cv::Vec3b(200, 200, 200));
  double const sine = std::sqrt(0.5);
  for (float const spacing : {0.05F, 1.0F}) {
    cv::Mat_<cv::Vec3b> const picture = drawRelief(plates(spacing, true), grey);
    ASSERT_EQ(picture.size(), grey.size()) << "a texture has no scale";
    expectColor(picture(10, 5), grey(0, 0), lightOf({0, 0, 1}));
    expectColor(picture(10, 34), grey(0, 0), lightOf({sine, 0, -sine}));
  }
}

TEST(CloudPicture, ShowsTheNearerOfTwoPointsBehindEachOther) {
  cv::Vec3b const grey(90, 90, 90);
  cv::Vec3b const red(0, 0, 250);
  cv::Vec3b const blue(250, 0, 0);
  for (bool const isNearFirst : {true, false}) {
    std::vector<cv::Vec3f> const points{{0, 0, 550},
                                        {20, 20, 550},
                                        {10, 10, isNearFirst ? 500.0F : 600.0F},
                                        {10, 10, isNearFirst ? 600.0F : 500.0F}};
    std::vector<cv::Vec3b> const colors{grey, grey, isNearFirst ? red : blue, isNearFirst ? blue : red};
    cv::Mat const picture = drawCloud(points, colors);
    std::vector<cv::Mat> channels;
    cv::split(picture, channels);
    EXPECT_GT(cv::countNonZero(channels[2] > 150), 0) << "the red point is the nearer one";
    EXPECT_EQ(cv::countNonZero(channels[0] > 150), 0);
  }
}

} // namespace
} // namespace vorn::tools
