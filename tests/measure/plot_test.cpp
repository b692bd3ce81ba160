// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/measure/plot.hpp>

#include "support/expect_error.hpp"
#include "support/read_text.hpp"
#include "support/svg_raster.hpp"

namespace vorn::mv {
namespace {

using test::expectError;

cv::Vec3b const magenta(255, 0, 255);

/// A plot of 0..10 by 0..100 with one magenta series.
Plot plotWith(SeriesKind kind, std::vector<double> const& x, std::vector<double> const& y) {
  Plot plot;
  plot.title = "Deviation of the part";
  plot.x = {"along", "mm", 0.0, 10.0};
  plot.y = {"height", "px", 0.0, 100.0};
  PlotSeries series;
  series.kind = kind;
  series.x = x;
  series.y = y;
  series.color = magenta;
  series.size = 3.0;
  plot.series.push_back(series);
  return plot;
}

cv::Mat_<uchar> pixelsOf(cv::Mat const& picture, cv::Vec3b const& color) {
  cv::Mat_<uchar> mask;
  cv::inRange(picture, color, color, mask);
  return mask;
}

/// The frame of the axes: the longest dark row and column.
cv::Rect frameOf(cv::Mat const& picture) {
  cv::Mat_<uchar> const ink = pixelsOf(picture, {30, 30, 30});
  int left = -1, right = -1, top = -1, bottom = -1;
  for (int x = 0; x < ink.cols; ++x) {
    if (cv::countNonZero(ink.col(x)) > ink.rows / 2) {
      left = left < 0 ? x : left;
      right = x;
    }
  }
  for (int y = 0; y < ink.rows; ++y) {
    if (cv::countNonZero(ink.row(y)) > ink.cols / 2) {
      top = top < 0 ? y : top;
      bottom = y;
    }
  }
  return {left, top, right - left + 1, bottom - top + 1};
}

TEST(Plot, PointsStandWhereTheAxesSay) {
  cv::Mat const picture = drawPlot(plotWith(SeriesKind::Points, {2.5}, {75.0})).picture;
  cv::Rect const frame = frameOf(picture);
  cv::Rect const dot = cv::boundingRect(pixelsOf(picture, magenta));
  EXPECT_NEAR(dot.x + 0.5 * (dot.width - 1), frame.x - 0.5 + 0.25 * frame.width, 0.6);
  EXPECT_NEAR(dot.y + 0.5 * (dot.height - 1), frame.y - 0.5 + 0.25 * frame.height, 0.6);
  Plot down = plotWith(SeriesKind::Points, {2.5}, {75.0});
  down.isYDown = true;
  cv::Rect const lower = cv::boundingRect(pixelsOf(drawPlot(down).picture, magenta));
  EXPECT_NEAR(lower.y + 0.5 * (lower.height - 1), frame.y - 0.5 + 0.75 * frame.height, 0.6);
}

TEST(Plot, AxesWithoutEndsHoldAllPoints) {
  Plot plot = plotWith(SeriesKind::Points, {120, 150, 200}, {-0.4, 0.1, 0.2});
  plot.x = {"along", "mm"};
  plot.y = {"height", "px"};
  cv::Mat const picture = drawPlot(plot).picture;
  cv::Rect const frame = frameOf(picture);
  cv::Rect const dots = cv::boundingRect(pixelsOf(picture, magenta));
  EXPECT_EQ(dots & frame, dots);
  EXPECT_GT(dots.width, 0.8 * frame.width);
  EXPECT_GT(dots.height, 0.8 * frame.height);
}

/// Whether a line of text stands somewhere in a part of the picture.
bool reads(cv::Mat const& picture, std::string const& text, cv::Rect const& where) {
  RasterFont const font;
  cv::Mat_<uchar> const ink = pixelsOf(picture, {30, 30, 30});
  for (int y = where.y; y + font.lineHeight() <= where.br().y; ++y) {
    cv::Rect const line(where.x, y, where.width, font.lineHeight());
    if (test::readLine(ink(line), font).find(text) != std::string::npos) {
      return true;
    }
  }
  return false;
}

TEST(Plot, TitleAxesAndNumbersAreReadBack) {
  Plot plot = plotWith(SeriesKind::Points, {2.5}, {75.0});
  plot.series[0].name = "view 3";
  cv::Mat const picture = drawPlot(plot).picture;
  cv::Rect const frame = frameOf(picture);
  int const lineHeight = RasterFont().lineHeight();
  int const high = lineHeight + 4; // a few lines of pixels to look for the text in
  int const below = frame.br().y + 5;
  EXPECT_TRUE(reads(picture, "Deviation of the part", {frame.x, frame.y - 24, 300, high}));
  EXPECT_TRUE(reads(picture, "10", {frame.br().x - 40, below, 60, high}));
  EXPECT_TRUE(
      reads(picture, "along [mm]", {frame.x + frame.width / 2 - 60, below + lineHeight - 3, 130, high}));
  EXPECT_TRUE(
      reads(picture, "view 3", {frame.br().x + 1, frame.y - 4, picture.cols - frame.br().x - 1, high}));
  EXPECT_TRUE(reads(picture, "100", {22, frame.y - 12, frame.x - 29, high}));
}

TEST(Plot, NamesStandInPlaceOfNumbersAsFarAsThereIsRoom) {
  Plot plot = plotWith(SeriesKind::Points, {0.0, 11.0}, {75.0, 20.0});
  plot.x.low = -0.5;
  plot.x.high = 11.5;
  for (int i = 0; i < 12; ++i) {
    plot.x.labels.push_back("pose_" + std::to_string(100 + i));
  }
  auto const isNamed = [&](cv::Mat const& picture, int i) {
    cv::Rect const frame = frameOf(picture);
    int const middle = frame.x + cvRound((i + 0.5) / 12.0 * frame.width);
    int const width = RasterFont().measure(plot.x.labels[0]).width + 8;
    cv::Rect const below(middle - width / 2, frame.br().y + 5, width, RasterFont().lineHeight() + 4);
    return reads(picture, plot.x.labels[static_cast<std::size_t>(i)], below & cv::Rect({}, picture.size()));
  };
  plot.size = {1500, 400};
  cv::Mat const wide = drawPlot(plot).picture;
  plot.size = {600, 400};
  cv::Mat const narrow = drawPlot(plot).picture;
  int named = 0;
  for (int i = 0; i < 12; ++i) {
    EXPECT_TRUE(isNamed(wide, i)) << i;
    named += isNamed(narrow, i) ? 1 : 0;
  }
  EXPECT_TRUE(isNamed(narrow, 0));
  EXPECT_GE(named, 3);
  EXPECT_LT(named, 12);
}

TEST(Plot, SeriesHaveTheirShapes) {
  cv::Mat const bars = drawPlot(plotWith(SeriesKind::Bars, {2, 3, 4}, {50, 100, 25})).picture;
  cv::Rect const frame = frameOf(bars);
  auto const at = [&](cv::Mat const& picture, double x, double y) {
    return picture.at<cv::Vec3b>(cvRound(frame.y + (1.0 - y / 100.0) * frame.height),
                                 cvRound(frame.x + x / 10.0 * frame.width));
  };
  cv::Vec3b const bar = at(bars, 3.1, 97.0);
  EXPECT_LT(bar[1], 60) << "filled up to 100";
  EXPECT_EQ(at(bars, 2.1, 45.0), bar);
  EXPECT_GT(at(bars, 2.1, 57.0)[1], 200) << "and no higher than 50";

  constexpr double gap = std::numeric_limits<double>::quiet_NaN();
  PlotDrawing const line = drawPlot(plotWith(SeriesKind::Line, {1, 4, 5, 6, 9}, {50, 50, gap, 50, 50}));
  EXPECT_EQ(at(line.picture, 2.3, 50), magenta);
  EXPECT_NE(at(line.picture, 5.0, 50), magenta) << "broken where a number is missing";
  EXPECT_EQ(at(line.picture, 7.7, 50), magenta);
  EXPECT_EQ(line.notFinite, 1U);

  // A hundred thousand points keep their extremes.
  std::vector<double> x, y;
  for (int i = 0; i < 100000; ++i) {
    x.push_back(i / 1e4);
    y.push_back(i == 54321 ? 95.0 : 10.0);
  }
  cv::Rect const many =
      cv::boundingRect(pixelsOf(drawPlot(plotWith(SeriesKind::Line, x, y)).picture, magenta));
  EXPECT_NEAR(many.y, frame.y + 0.05 * frame.height, 3.0);
}

TEST(Plot, HeatMapHasTheColoursOfItsValues) {
  Plot plot;
  plot.heat = (cv::Mat_<float>(2, 3) << 0.0F, 1.0F, 2.0F, 3.0F, std::nanf(""), 4.0F);
  plot.isYDown = true;
  plot.heatScale.unit = "mm";
  cv::Mat const picture = drawPlot(plot).picture;
  cv::Rect const frame = frameOf(picture);
  for (int row = 0; row < 2; ++row) {
    for (int column = 0; column < 3; ++column) {
      cv::Vec3b const seen = picture.at<cv::Vec3b>(frame.y + frame.height * (2 * row + 1) / 4,
                                                   frame.x + frame.width * (2 * column + 1) / 6);
      float const value = plot.heat.at<float>(row, column);
      cv::Vec3b const expected = std::isnan(value)
                                     ? cv::Vec3b(222, 222, 222)
                                     : colorOf(ColorMap::Turbo, static_cast<double>(value) / 4.0);
      EXPECT_EQ(seen, expected) << row << ' ' << column;
    }
  }
}

TEST(Plot, EqualScaleKeepsSquares) {
  Plot plot = plotWith(SeriesKind::Points, {1, 9}, {10, 90});
  plot.x.high = 100.0;
  plot.isEqualScale = true;
  cv::Rect const frame = frameOf(drawPlot(plot).picture);
  EXPECT_NEAR(frame.width, frame.height, 1);
}

TEST(Plot, SvgLooksLikeThePicture) {
  Plot plot = plotWith(SeriesKind::Line, {1, 4, 6, 9}, {20, 80, 30, 60});
  plot.series.push_back(plot.series[0]);
  plot.series[1].kind = SeriesKind::Arrows;
  plot.series[1].dx = {1, -1, 0, 1};
  plot.series[1].dy = {10, 10, -10, 0};
  plot.series[1].color.reset();
  plot.series[1].name = "arrows";
  plot.arrowSample = 1.0;
  plot.arrowUnit = "mm";
  for (Ground const ground : {Ground::Light, Ground::Dark}) {
    plot.ground = ground;
    cv::Mat const picture = drawPlot(plot).picture;
    cv::Mat const svg = test::rasterized(drawPlotSvg(plot).document);
    ASSERT_EQ(svg.size(), picture.size());
    cv::Mat difference;
    cv::absdiff(svg, picture, difference);
    EXPECT_EQ(cv::countNonZero(difference.reshape(1) > 100), 0);
    EXPECT_LT(cv::mean(difference.reshape(1))[0], 0.2);
  }
}

// One arrow to each of eight sides: its ink is that of the arrow to the right, turned, and wider at its head.
TEST(Plot, ArrowsHaveTheirHeadsWhateverWayTheyPoint) {
  auto const inkAlong = [](double angle) {
    Plot plot = plotWith(SeriesKind::Arrows, {5}, {5});
    plot.x = {"along", "", 0.0, 10.0};
    plot.y = {"up", "", 0.0, 10.0};
    plot.isEqualScale = true;
    plot.arrowSample = 1.0;
    plot.series[0].dx = {std::cos(angle)};
    plot.series[0].dy = {std::sin(angle)};
    cv::Mat picture = drawPlot(plot).picture;
    cv::Rect const frame = frameOf(picture);
    cv::Mat_<uchar> ink; // covered by half and more
    cv::inRange(picture(frame), cv::Scalar(200, 0, 200), cv::Scalar(255, 127, 255), ink);
    cv::Point2d const start(0.5 * (frame.width - 1), 0.5 * (frame.height - 1));
    // Farthest along the arrow, and the widest across it behind that.
    cv::Vec2d size;
    for (int y = 0; y < ink.rows; ++y) {
      for (int x = 0; x < ink.cols; ++x) {
        if (ink(y, x) != 0) {
          cv::Point2d const apart = cv::Point2d(x, y) - start;
          size[0] = std::max(size[0], apart.x * std::cos(angle) - apart.y * std::sin(angle));
          size[1] = std::max(size[1], std::abs(apart.x * std::sin(angle) + apart.y * std::cos(angle)));
        }
      }
    }
    return size;
  };
  cv::Vec2d const right = inkAlong(0);
  EXPECT_GT(right[1], 1) << "the head: half of the line is 0.6 wide";
  for (int i = 1; i < 8; ++i) {
    cv::Vec2d const size = inkAlong(i * CV_PI / 4);
    EXPECT_NEAR(size[0], right[0], 1.5) << i;
    EXPECT_NEAR(size[1], right[1], 1) << i;
  }
}

TEST(Plot, SeveralShareAPicture) {
  Plot first = plotWith(SeriesKind::Line, {1, 4, 6, 9}, {20, 80, 30, 60});
  first.size = {400, 300};
  Plot second = plotWith(SeriesKind::Points, {2.5, 7}, {75.0, 20});
  second.size = {300, 260};
  Plot third = first;
  third.series[0].y[2] = std::numeric_limits<double>::quiet_NaN();
  PlotDrawing const drawing = drawPlots({first, second, third}, 2);
  ASSERT_EQ(drawing.picture.size(), cv::Size(700, 600));
  EXPECT_EQ(drawing.notFinite, 1U);
  struct Part {
    Plot const& plot;
    cv::Point corner;
  };
  for (Part const& part : {Part{first, {0, 0}}, Part{second, {400, 0}}, Part{third, {0, 300}}}) {
    cv::Mat const alone = drawPlot(part.plot).picture;
    EXPECT_EQ(cv::norm(drawing.picture(cv::Rect(part.corner, alone.size())), alone, cv::NORM_INF), 0);
  }
  cv::Mat difference;
  cv::absdiff(test::rasterized(drawPlotsSvg({first, second, third}, 2).document), drawing.picture,
              difference);
  EXPECT_EQ(cv::countNonZero(difference.reshape(1) > 100), 0);
  expectError([] { drawPlots({}, 1); }, "0 plots");
  expectError([&] { drawPlots({first}, 0); }, "0 columns");
}

TEST(Plot, ALegendWithoutRoomSaysHowManyNamesThereAreMore) {
  Plot plot = plotWith(SeriesKind::Points, {2.5}, {75.0});
  for (int i = 0; i < 60; ++i) {
    plot.series.push_back(plot.series[0]);
    plot.series.back().name = "view " + std::to_string(i);
  }
  cv::Mat const picture = drawPlot(plot).picture;
  RasterFont const font;
  cv::Mat_<uchar> const ink = pixelsOf(picture, {30, 30, 30});
  int const x = frameOf(picture).br().x + 7;
  bool isSaid = false;
  for (int y = picture.rows - 60; y + font.lineHeight() <= picture.rows; ++y) {
    std::string const line = test::readLine(ink(cv::Rect(x, y, picture.cols - x, font.lineHeight())), font);
    isSaid = isSaid || (line.find("and ") != std::string::npos && line.find(" more") != std::string::npos);
  }
  EXPECT_TRUE(isSaid);
}

TEST(Plot, OfAHistogramShowsItsCounts) {
  cv::Mat image(100, 100, CV_8UC3, cv::Scalar(10, 20, 30));
  Plot const plot = plotOf(calcHistogram(image), "Histogram");
  ASSERT_EQ(plot.series.size(), 3U);
  EXPECT_EQ(plot.series[2].name, "red");
  EXPECT_EQ(plot.series[2].x[30], 30.0);
  EXPECT_EQ(plot.series[2].y[30], 10000.0);
  EXPECT_EQ(drawPlot(plot).notFinite, 0U);
}

TEST(Plot, RefusesWhatItCannotDraw) {
  Plot plot = plotWith(SeriesKind::Points, {1, 2}, {1});
  expectError([&] { drawPlot(plot); }, "has 2 x and 1 y");
  plot = plotWith(SeriesKind::Arrows, {1}, {1});
  expectError([&] { drawPlotSvg(plot); }, "0 dx");
  plot = plotWith(SeriesKind::Points, {1}, {1});
  plot.size = {50, 600};
  expectError([&] { drawPlot(plot); }, "50 x 600");
  plot.size = {600, 600};
  plot.x.low = plot.x.high;
  expectError([&] { drawPlot(plot); }, "low end of x");
  EXPECT_NO_THROW(drawPlot(Plot())) << "an empty plot has axes";
}

} // namespace
} // namespace vorn::mv
