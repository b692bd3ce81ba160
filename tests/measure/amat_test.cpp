// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/core/matrix_json.hpp>
#include <vorn/mv/measure/amat.hpp>

#include "support/expect_error.hpp"
#include "support/read_text.hpp"
#include "support/svg_raster.hpp"

namespace vorn::mv {
namespace {

using test::expectError;

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
cv::Vec3b const red(0, 0, 255);

MarkStyle plain(cv::Vec3b const& color = red) {
  MarkStyle style;
  style.color = color;
  style.hasHalo = false;
  return style;
}

AMat onGround(uchar grey = 100, cv::Size size = {160, 120}) {
  return AMat(cv::Mat(size, CV_8UC1, cv::Scalar(grey)));
}

cv::Vec3b at(cv::Mat const& picture, int x, int y) {
  return picture.at<cv::Vec3b>(y, x);
}

CameraModel camera() {
  nlohmann::json json;
  CameraModel().write(json);
  json["K"] = cv::Mat((cv::Mat_<double>(3, 3) << 200, 0, 80, 0, 200, 60, 0, 0, 1));
  json["D"] = cv::Mat(cv::Mat::zeros(1, 5, CV_64F));
  CameraModel model;
  model.read(json);
  return model;
}

cv::Matx44d viewFrom(double distance) {
  cv::Matx44d pose = cv::Matx44d::eye();
  pose(2, 3) = distance;
  return pose;
}

/// How much a picture differs from what it was drawn on, by the channel that a red mark lowers.
cv::Mat_<double> coverage(cv::Mat const& picture, double ground) {
  cv::Mat_<double> share(picture.size());
  for (int y = 0; y < share.rows; ++y) {
    for (int x = 0; x < share.cols; ++x) {
      share(y, x) = (ground - picture.at<cv::Vec3b>(y, x)[0]) / ground;
    }
  }
  return share;
}

TEST(AMat, WithoutMarksIsTheImageInThreeChannels) {
  cv::Mat image(50, 70, CV_8UC1);
  cv::randu(image, 0, 256);
  Drawing const drawing = AMat(image).draw();
  cv::Mat expected;
  cv::cvtColor(image, expected, cv::COLOR_GRAY2BGR);
  EXPECT_EQ(cv::norm(drawing.picture, expected, cv::NORM_INF), 0);
  drawing.picture.data[0] = 0;
  EXPECT_EQ(AMat(image).image().data, image.data) << "the image itself is shared, pictures are copies";
}

TEST(AMat, MarksCoverTheAreaOfTheirShape) {
  struct Case {
    char const* name;
    std::function<void(AMat&)> add;
    double area;
  };
  MarkStyle wide = plain();
  wide.width = 3.0;
  MarkStyle filled = plain();
  filled.isFilled = true;
  filled.opacity = 1.0;
  filled.width = 0.1;
  MarkStyle dot = plain();
  dot.size = 8.25;
  // A line has round ends; a cross's bars share their middle.
  std::vector<Case> const cases{
      {"line",
       [&](AMat& a) {
         a.addLine({cv::Point2d(20.3, 30.1), cv::Point2d(100.7, 77.9)}, wide);
       },
       3.0 * std::hypot(80.4, 47.8) + CV_PI * 1.5 * 1.5},
      {"dot", [&](AMat& a) { a.addPoint(cv::Point2d(60.4, 50.6), dot); }, CV_PI * 8.25 * 8.25},
      {"circle", [&](AMat& a) { a.addCircle(cv::Point2d(60.4, 50.6), 25.0, wide); },
       2.0 * CV_PI * 25.0 * 3.0},
      {"ellipse",
       [&](AMat& a) {
         a.addEllipse({70, 60}, {40, 15}, 30.0, filled);
       },
       CV_PI * 40.0 * 15.0},
      {"polygon",
       [&](AMat& a) {
         a.addPolygon({cv::Point2d(20.5, 20.5), {120.5, 20.5}, {120.5, 90.5}}, filled);
       },
       0.5 * 100.0 * 70.0},
      {"cross",
       [&](AMat& a) {
         MarkStyle s = wide;
         s.size = 10;
         a.addCross(cv::Point2d(60, 50), s);
       },
       2.0 * (3.0 * 20.0 + CV_PI * 1.5 * 1.5) - 9.0}};
  for (Case const& one : cases) {
    AMat amat = onGround();
    one.add(amat);
    double const area = cv::sum(coverage(amat.draw().picture, 100.0))[0];
    EXPECT_NEAR(area, one.area, 0.015 * one.area + 1.0) << one.name;
  }
}

TEST(AMat, MarksLieWhereTheirCoordinatesSay) {
  AMat amat = onGround();
  MarkStyle style = plain();
  style.size = 3.0;
  amat.addPoint(cv::Point2d(40.3, 70.8), style);
  cv::Mat_<double> const share = coverage(amat.draw().picture, 100.0);
  cv::Moments const moments = cv::moments(share);
  EXPECT_NEAR(moments.m10 / moments.m00, 40.3, 0.02);
  EXPECT_NEAR(moments.m01 / moments.m00, 70.8, 0.02);

  // Four times enlarged, from pixel (30, 60): the middle of a pixel stays the middle of its square.
  DrawSettings settings;
  settings.crop = {30, 60, 40, 30};
  settings.zoom = 4.0;
  cv::Moments const zoomed = cv::moments(coverage(amat.draw(settings).picture, 100.0));
  EXPECT_NEAR(zoomed.m10 / zoomed.m00, (40.3 - 30 + 0.5) * 4 - 0.5, 0.02);
  EXPECT_NEAR(zoomed.m01 / zoomed.m00, (70.8 - 60 + 0.5) * 4 - 0.5, 0.02);
}

TEST(AMat, MillimetresAreSeenThroughTheView) {
  AMat amat = onGround();
  amat.addPoint(cv::Point3d(10, -5, 0), plain());
  expectError([&] { amat.draw(); }, "no view");
  amat.setView(camera(), viewFrom(50.0));
  cv::Moments const moments = cv::moments(coverage(amat.draw().picture, 100.0));
  EXPECT_NEAR(moments.m10 / moments.m00, 80 + 200 * 10 / 50.0, 0.02);
  EXPECT_NEAR(moments.m01 / moments.m00, 60 - 200 * 5 / 50.0, 0.02);

  amat.clear();
  amat.addCircle(cv::Point3d(0, 0, 0), 10.0, plain());
  cv::Mat const circle = amat.draw().picture;
  EXPECT_EQ(at(circle, 120, 60), red);
  EXPECT_EQ(at(circle, 80, 20), red);
  EXPECT_EQ(at(circle, 80, 60), cv::Vec3b(100, 100, 100));

  amat.clear();
  amat.addAxes(10.0, "part", plain());
  EXPECT_EQ(at(amat.draw().picture, 100, 60), cv::Vec3b(70, 70, 255)) << "x is red";
  EXPECT_EQ(at(amat.draw().picture, 80, 80), cv::Vec3b(90, 220, 60)) << "y is green";

  amat.setView(camera(), viewFrom(-50.0));
  DrawReport const report = amat.draw().report;
  EXPECT_EQ(report.behindCamera, 1U);
  EXPECT_EQ(report.drawn, 0U);
  expectError([&] { amat.setView(CameraModel(), viewFrom(50.0)); }, "not calibrated");
}

TEST(AMat, EveryDepthShowsColoursOverItsRange) {
  for (int const depth : {CV_8U, CV_8S, CV_16U, CV_16S, CV_32S, CV_32F, CV_64F}) {
    cv::Mat image(60, 80, CV_MAKETYPE(depth, 1), cv::Scalar(10));
    image.colRange(40, 80).setTo(110);
    AMat amat(image);
    amat.addPoint(cv::Point2d(20, 30), plain({0, 127, 255}));
    DrawSettings settings;
    settings.low = 10;
    settings.high = 110;
    cv::Mat const eight = amat.draw(settings).picture;
    EXPECT_EQ(eight.type(), CV_8UC3);
    EXPECT_EQ(at(eight, 2, 2), cv::Vec3b(0, 0, 0));
    EXPECT_EQ(at(eight, 70, 2), cv::Vec3b(255, 255, 255));
    EXPECT_EQ(at(eight, 20, 30), cv::Vec3b(0, 127, 255));

    settings.depth = DrawDepth::Own;
    cv::Mat own = amat.draw(settings).picture;
    EXPECT_EQ(own.type(), CV_MAKETYPE(depth, 3));
    own.convertTo(own, CV_64F);
    EXPECT_EQ(own.at<cv::Vec3d>(2, 70), cv::Vec3d(110, 110, 110)) << "values stay";
    cv::Vec3d const mark = own.at<cv::Vec3d>(30, 20);
    EXPECT_NEAR(mark[0], 10.0, 0.51);
    EXPECT_NEAR(mark[1], 10.0 + 100.0 * 127 / 255, 0.51);
    EXPECT_NEAR(mark[2], 110.0, 0.51);
  }
}

TEST(AMat, TheUsualRangeLeavesOutStrayValues) {
  cv::Mat image(100, 200, CV_32FC1);
  cv::randu(image, 5.0, 7.0);
  image.at<float>(3, 3) = 1e30F;
  image.at<float>(3, 4) = std::numeric_limits<float>::quiet_NaN();
  cv::Mat const picture = AMat(image).draw().picture;
  cv::Scalar const mean = cv::mean(picture);
  EXPECT_NEAR(mean[0], 127.5, 4.0) << "even values from black to white";
}

TEST(AMat, LettersAreReadBackFromThePicture) {
  AMat amat = onGround(0, {320, 80});
  MarkStyle style = plain({255, 255, 255});
  style.hasHalo = true;
  amat.addText(cv::Point2d(20, 40), "RMS 0.0147 px", style);
  cv::Mat white;
  cv::inRange(amat.draw().picture, cv::Scalar::all(255), cv::Scalar::all(255), white);
  RasterFont const font;
  cv::Rect const ink = cv::boundingRect(white);
  int const top = ink.br().y - 3 - font.ascent(); // "p" hangs 3 below the baseline
  cv::Mat_<uchar> const line = white(cv::Rect(ink.x, top, ink.width, font.lineHeight()));
  EXPECT_EQ(test::readLine(line, font), "RMS 0.0147 px");
  EXPECT_EQ(ink.x, 20);
}

TEST(AMat, SvgLooksLikeThePicture) {
  cv::Mat image(120, 160, CV_8UC1);
  cv::randu(image, 60, 140);
  AMat amat(image);
  amat.setTitle("Title & <more>");
  amat.addLegend(ColorMap::Diverging, -0.3, 0.3, "mm");
  MarkStyle style;
  style.isFilled = true;
  amat.addLine({cv::Point2d(5, 5), {60, 20.5}, {30, 100}});
  amat.addEllipse({100, 60}, {30, 12}, 20.0, style);
  amat.addCircle(cv::Point2d(40.5, 70.25), 12.5, style);
  amat.addPolygon({cv::Point2d(90, 80), {150, 90}, {120, 115}}, style);
  amat.addArrow(cv::Point2d(20, 110), cv::Point2d(75, 85), style);
  amat.addCross(cv::Point2d(140, 20), style);
  amat.addPoint(cv::Point2d(120, 25), style);
  amat.addText(cv::Point2d(10, 50), "text 12", style);
  amat.addText(cv::Point2d(150, 50), "cut off at the edge", style);
  for (double const zoom : {1.0, 3.0}) {
    DrawSettings settings;
    settings.zoom = zoom;
    cv::Mat const picture = amat.draw(settings).picture;
    cv::Mat const svg = test::rasterized(amat.drawSvg(settings).document);
    ASSERT_EQ(svg.size(), picture.size());
    cv::Mat difference;
    cv::absdiff(svg, picture, difference);
    cv::Mat_<uchar> largest(picture.size());
    for (int y = 0; y < largest.rows; ++y) {
      for (int x = 0; x < largest.cols; ++x) {
        cv::Vec3b const d = difference.at<cv::Vec3b>(y, x);
        largest(y, x) = std::max({d[0], d[1], d[2]});
      }
    }
    // Edges are smoothed by area there and by distance here: a quarter of a step of colour, on edges only.
    EXPECT_LT(cv::mean(largest)[0], 0.6);
    EXPECT_EQ(cv::countNonZero(largest > 80), 0);
  }
}

TEST(AMat, TitleAndLegendStandInMarginsOfTheirGround) {
  AMat amat = onGround(100, {200, 150});
  amat.setTitle("Height of the part");
  amat.addLegend(ColorMap::Gray, 0, 10, "mm", "z");
  DrawSettings settings;
  settings.ground = Ground::Light;
  Drawing const drawing = amat.draw(settings);
  cv::Point const corner = drawing.report.imageCorner;
  EXPECT_EQ(corner.x, 0);
  EXPECT_GT(corner.y, RasterFont().lineHeight());
  EXPECT_EQ(at(drawing.picture, corner.x + 100, corner.y + 75), cv::Vec3b(100, 100, 100)) << "the image";
  EXPECT_EQ(at(drawing.picture, drawing.picture.cols - 1, 0), cv::Vec3b(255, 255, 255)) << "the ground";
  cv::Mat_<uchar> dark;
  cv::inRange(drawing.picture(cv::Rect(8, 4, 192, RasterFont().lineHeight())), cv::Scalar::all(0),
              cv::Scalar::all(100), dark);
  EXPECT_EQ(test::readLine(dark, RasterFont()), "Height of the part");
  // The legend: white above, black below, the middle grey half way.
  int bar = 0;
  for (int x = 200; x < drawing.picture.cols && bar == 0; ++x) {
    if (at(drawing.picture, x, drawing.picture.rows - 20)[0] < 40) {
      bar = x;
    }
  }
  ASSERT_GT(bar, 0);
  int previous = 256;
  for (int y = corner.y + 50; y < drawing.picture.rows - 20; ++y) {
    int const grey = at(drawing.picture, bar + 4, y)[0];
    EXPECT_LE(grey, previous);
    previous = grey;
  }
}

TEST(AMat, AnImageOfOneValueIsShown) {
  for (double const value : {0.0, 0.25, -3.0, 1e30, 1e-30}) {
    for (int const depth : {CV_16U, CV_32S, CV_32F, CV_64F}) {
      AMat amat(cv::Mat(20, 30, depth, cv::Scalar(value)));
      cv::Mat const picture = amat.draw().picture;
      EXPECT_EQ(cv::norm(picture, cv::Mat(20, 30, CV_8UC3, picture.at<cv::Vec3b>(0, 0)), cv::NORM_INF), 0);
    }
  }
}

TEST(AMat, CountsWhatBecameOfItsMarks) {
  AMat amat = onGround();
  amat.addPoint(cv::Point2d(20, 20), {}, "dots");
  amat.addPoint(cv::Point2d(-50, 20), {}, "dots");
  amat.addPoint(cv::Point2d(1e8, -1e8), {}, "dots");
  amat.addText(cv::Point2d(20, 50), "\xE4\xB8\xAD", {}, "words");
  amat.addCircle(cv::Point2d(50, 50), 5, {}, "extra");
  amat.hideLayer("extra");
  DrawReport const report = amat.draw().report;
  EXPECT_EQ(report.drawn, 2U);
  EXPECT_EQ(report.outside, 2U);
  EXPECT_EQ(report.hidden, 1U);
  EXPECT_EQ(report.missingGlyphs, 1U);
  EXPECT_EQ(amat.layers(), (std::vector<std::string>{"dots", "extra", "words"}));
  amat.showLayer("extra");
  amat.clearLayer("dots");
  EXPECT_EQ(amat.draw().report.drawn, 2U);
}

TEST(AMat, MarksComeBackFromJson) {
  AMat amat = onGround();
  amat.setTitle("title");
  amat.setView(camera(), viewFrom(50.0));
  MarkStyle style;
  style.meaning = Meaning::Dropped;
  style.isFilled = true;
  style.width = 2.25;
  style.font = FontSize::Large;
  amat.addEllipse({70, 60}, {40, 15}, 30.0, style, "shapes");
  amat.addAxes(10.0, "part");
  amat.addScaleBar(20.0, 0.5);
  amat.addLegend(ColorMap::Diverging, -1.0, 2.0, "mm", "z");
  amat.addArrow(cv::Point3d(0, 0, 0), cv::Point3d(5, 5, 5), plain());
  amat.addText(cv::Point2d(5, 5), "gone", {}, "hidden");
  amat.hideLayer("hidden");
  nlohmann::json json;
  amat.write(json);
  AMat other(amat.image());
  other.read(nlohmann::json::parse(json.dump()));
  EXPECT_EQ(cv::norm(other.draw().picture, amat.draw().picture, cv::NORM_INF), 0);
  nlohmann::json again;
  other.write(again);
  EXPECT_EQ(again, json);

  json["Marks"][2]["kind"] = "Blob";
  expectError([&] { other.read(json); }, "Blob");
  json["Marks"][2]["kind"] = "Text";
  json["Marks"][2]["points"] = {{1, 2, nullptr}};
  EXPECT_ANY_THROW(other.read(json));
  EXPECT_EQ(other.marks().size(), 6U) << "as it was";
}

TEST(AMat, RefusesWhatItCannotDrawAndKeepsTheRest) {
  AMat amat = onGround();
  amat.addPoint(cv::Point2d(20, 20));
  expectError([] { AMat(cv::Mat()); }, "empty");
  expectError([] { AMat(cv::Mat::zeros(5, 5, CV_8UC2)); }, "channels");
  expectError([] { AMat().draw(); }, "no image");
  expectError([&] { amat.addPoint(cv::Point2d(notANumber, 1)); }, "Point 0 of the Point is not finite");
  expectError([&] { amat.addLine({cv::Point2d(1, 1)}); }, "Line has 1 points");
  expectError([&] { amat.addCircle(cv::Point2d(1, 1), -2.0); }, "Circle: length");
  expectError([&] { amat.addScaleBar(10, 0); }, "mmPerPixel");
  expectError([&] { amat.addLegend(ColorMap::Gray, 2, 2, ""); }, "low end");
  MarkStyle style;
  style.width = notANumber;
  expectError([&] { amat.addPoint(cv::Point2d(1, 1), style); }, "width");
  auto const with = [&](auto change) {
    DrawSettings settings;
    change(settings);
    amat.draw(settings);
  };
  expectError([&] { with([](auto& s) { s.zoom = 0; }); }, "zoom must be");
  expectError([&] { with([](auto& s) { s.crop = {500, 500, 10, 10}; }); }, "outside the image of 160 x 120");
  expectError(
      [&] {
        with([](auto& s) {
          s.low = 5;
          s.high = 5;
        });
      },
      "below");
  EXPECT_EQ(amat.marks().size(), 1U);
}

} // namespace
} // namespace vorn::mv
