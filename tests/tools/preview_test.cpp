// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "support/expect_error.hpp"
#include "support/read_text.hpp"
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
  cv::Mat_<cv::Vec3b> const picture = drawRelief(plates(1.0F, false)).image();
  double const light = lightOf({0, 0, 1});
  expectColor(picture(10, 5), turbo(255), light);
  expectColor(picture(10, 34), turbo(0), light);
}

TEST(Relief, ARangeFixesTheColoursAndTheLegend) {
  FigureOptions look;
  look.range = std::pair<double, double>(400.0, 600.0);
  mv::AMat const relief = drawRelief(plates(1.0F, false), {}, "two plates", look);
  cv::Mat_<cv::Vec3b> const picture = relief.image();
  expectColor(picture(10, 5), turbo(127), lightOf({0, 0, 1}));
  expectColor(picture(10, 34), turbo(0), lightOf({0, 0, 1}));
  ASSERT_EQ(relief.marks().front().kind, mv::MarkKind::Legend);
  EXPECT_EQ(relief.marks().front().low, 400.0);
  EXPECT_EQ(relief.marks().front().high, 600.0);
  EXPECT_EQ(relief.marks().front().unit, "mm");
  look.range = std::pair<double, double>(600.0, 400.0);
  test::expectError([&] { look.check(); }, "--range");
}

TEST(Relief, TitleAndScaleBarAreSeenOnLightGround) {
  FigureOptions look;
  look.isLight = true;
  cv::Mat_<cv::Vec3f> xyz = plates(0.5F, false);
  xyz(3, 3) = cv::Vec3f::all(std::nanf(""));
  mv::AMat const relief = drawRelief(xyz, {}, "two plates", look);
  EXPECT_EQ(relief.image().at<cv::Vec3b>(3, 3), cv::Vec3b(255, 255, 255)) << "nothing is white for print";
  mv::Mark const bar = relief.marks().back();
  ASSERT_EQ(bar.kind, mv::MarkKind::ScaleBar);
  EXPECT_NEAR(bar.mmPerPixel, 0.5, 1e-6);
  EXPECT_EQ(bar.length, 5.0) << "a quarter of 20 mm";
  mv::Drawing const drawing = relief.draw(look.drawSettings());
  cv::Mat_<uchar> ink;
  mv::RasterFont const font;
  cv::inRange(drawing.picture(cv::Rect(8, 4, 80, font.lineHeight())), cv::Scalar::all(0),
              cv::Scalar::all(100), ink);
  EXPECT_EQ(test::readLine(ink, font), "two plates");
}

TEST(DecodedMap, HasTheColoursOfItsLegend) {
  cv::Mat_<float> map(4, 40, -1.0F);
  for (int x = 0; x < 30; ++x) {
    map.col(x).setTo(10.0F * static_cast<float>(x));
  }
  mv::AMat const picture = drawDecodedMap(map, 1000.0F, "column");
  mv::Mark const legend = picture.marks().front();
  EXPECT_EQ(legend.high, 290.0);
  EXPECT_EQ(picture.image().at<cv::Vec3b>(2, 35), cv::Vec3b(40, 36, 34)) << "not decoded";
  for (int const x : {5, 29}) {
    // Bright at the end of a period, six tenths at its start.
    double const light = 0.6 + 0.4 * 10.0 * x / 1000.0;
    expectColor(picture.image().at<cv::Vec3b>(2, x), mv::colorOf(legend.map, 10.0 * x / legend.high), light);
  }
}

TEST(Relief, ShadeDependsOnTheSlopeAndNotOnTheSpacing) {
  cv::Mat_<cv::Vec3b> const grey(20, 40, cv::Vec3b(200, 200, 200));
  double const sine = std::sqrt(0.5);
  for (float const spacing : {0.05F, 1.0F}) {
    mv::AMat const relief = drawRelief(plates(spacing, true), grey);
    cv::Mat_<cv::Vec3b> const picture = relief.image();
    ASSERT_EQ(relief.marks().size(), 1U) << "a texture has a scale bar, but no legend";
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
    cv::Mat const picture = drawCloud(points, colors).image();
    std::vector<cv::Mat> channels;
    cv::split(picture, channels);
    EXPECT_GT(cv::countNonZero(channels[2] > 150), 0) << "the red point is the nearer one";
    EXPECT_EQ(cv::countNonZero(channels[0] > 150), 0);
  }
}

TEST(CloudPicture, HasAScaleBarOfItsOwnMillimetres) {
  std::vector<cv::Vec3f> points;
  for (int i = 0; i <= 200; ++i) {
    points.emplace_back(static_cast<float>(i), 0.5F * static_cast<float>(i % 100), -20.0F);
  }
  mv::AMat const picture = drawCloud(points);
  mv::Mark const bar = picture.marks().back();
  ASSERT_EQ(bar.kind, mv::MarkKind::ScaleBar);
  EXPECT_EQ(bar.length, 50.0);
  EXPECT_NEAR(bar.mmPerPixel * picture.image().cols, 200.0, 0.05 * 200.0);
  EXPECT_NEAR(picture.marks().front().low, -20.0, 0.01) << "depths behind the camera keep their numbers";
  EXPECT_NE(drawCloud({}, {}, "empty.ply").title().find("no points"), std::string::npos);
}

} // namespace
} // namespace vorn::tools
