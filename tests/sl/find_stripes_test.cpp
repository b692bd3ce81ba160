// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/find_stripes.hpp>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include "sl/pattern_capture.hpp"
#include "support/expect_error.hpp"
#include "support/watching.hpp"

namespace vorn::mv {
namespace {

using test::PatternCapture;
using vorn::test::expectError;

PatternSet graySet(bool hasInverses) {
  PatternSetOptions options;
  options.hasInverses = hasInverses;
  options.period = 16.0;
  return PatternSet::builtIn("gray-phase", {640, 400}, options);
}

/// Half a projector pixel a camera pixel, so that edges are some pixels wide.
PatternCapture fineCapture() {
  PatternCapture capture;
  capture.size = {220, 160};
  capture.column = [](int x, int y) { return 100.3 + 0.61 * x + 0.05 * y; };
  capture.row = [](int x, int y) { return 60.7 + 0.57 * y - 0.04 * x; };
  capture.albedo = [](int x, int y) { return (x / 9 + y / 7) % 2 == 0 ? 1.0 : 0.7; };
  capture.noise = 1.5;
  capture.blur = 0.7;
  return capture;
}

PatternImage lines(double period, double cell, double shift, PatternAxis axis = PatternAxis::Column) {
  PatternImage image;
  image.role = PatternRole::Line;
  image.axis = axis;
  image.period = period;
  image.cell = cell;
  image.shift = shift;
  return image;
}

/// Errors of points in camera pixels and in their standard deviations.
struct StripeErrors {
  double count = 0.0;
  double unknown = 0.0; ///< without a projector coordinate
  double wrong = 0.0;   ///< farther than two pixels from where their edge is
  double mean = 0.0;
  double rms = 0.0;
  double normalized = 0.0; ///< root mean square in their standard deviations
};

/// @param slope of the coordinate along the way that points are found on, projector pixels a camera pixel
StripeErrors errorsOf(std::vector<StripePoint> const& points, double slope,
                      std::function<double(double, double)> const& coordinate) {
  StripeErrors e;
  for (StripePoint const& point : points) {
    ++e.count;
    if (point.projector < 0.0F) {
      ++e.unknown;
      continue;
    }
    double const truth = coordinate(static_cast<double>(point.point.x), static_cast<double>(point.point.y));
    double const error = (truth - static_cast<double>(point.projector)) / slope;
    if (!(std::fabs(error) < 2.0)) {
      ++e.wrong;
      continue;
    }
    e.mean += error;
    e.rms += error * error;
    e.normalized += std::pow(error / static_cast<double>(point.sigma), 2);
  }
  double const good = e.count - e.unknown - e.wrong;
  e.mean /= good;
  e.rms = std::sqrt(e.rms / good);
  e.normalized = std::sqrt(e.normalized / good);
  return e;
}

/// How many crossings there are of the borders at which bits change, along camera rows, by walking along
/// them.
double edgesAlongRows(PatternSet const& set, PatternCapture const& capture) {
  double count = 0.0;
  for (PatternImage const& image : set.images) {
    if (image.role != PatternRole::Bit || image.axis != PatternAxis::Column || image.isInverse) {
      continue;
    }
    for (int y = 0; y < capture.size.height; ++y) {
      auto const isLit = [&](int x) {
        double const pixel = std::floor(capture.column(x, y) + 0.5);
        return PatternCapture::isLit(image,
                                     static_cast<long>(std::floor((pixel + image.shift) / image.cell)));
      };
      for (int x = 0; x + 1 < capture.size.width; ++x) {
        count += isLit(x) != isLit(x + 1) ? 1.0 : 0.0;
      }
    }
  }
  return count;
}

TEST(FindStripes, EdgesLieWhereTheyWereProjectedWithinTheirSigma) {
  for (bool const hasInverses : {true, false}) {
    PatternSet const set = graySet(hasInverses);
    PatternCapture const capture = fineCapture();
    FoundStripes const found = find_stripes(set, capture.capture(set));
    StripeErrors const columns =
        errorsOf(found.columns, 0.61, [](double x, double y) { return 100.3 + 0.61 * x + 0.05 * y; });
    StripeErrors const rows =
        errorsOf(found.rows, 0.57, [](double x, double y) { return 60.7 + 0.57 * y - 0.04 * x; });
    for (StripeErrors const& e : {columns, rows}) {
      EXPECT_EQ(e.wrong, 0.0) << hasInverses;
      EXPECT_LT(e.unknown, 0.01 * e.count) << hasInverses;
      EXPECT_NEAR(e.mean, 0.0, 0.003) << hasInverses;
      EXPECT_LT(e.rms, 0.05) << hasInverses;
      EXPECT_NEAR(e.normalized, 1.0, 0.12) << hasInverses;
    }
    EXPECT_NEAR(columns.count / edgesAlongRows(set, capture), 1.0, 0.01) << hasInverses;
    EXPECT_TRUE(std::none_of(found.columns.begin(), found.columns.end(),
                             [](StripePoint const& p) { return p.isAcross; }));
    EXPECT_TRUE(
        std::all_of(found.rows.begin(), found.rows.end(), [](StripePoint const& p) { return p.isAcross; }));
    EXPECT_NEAR(found.noise, std::hypot(1.5, 0.2887), 0.15) << hasInverses;
  }
}

/// Stripes of half a fringe are then not all equally wide: 4.5 pixels are shown as 5 and 4 in turn.
TEST(FindStripes, EdgesOfStripesOfNoWholeNumberOfPixelsLieWherePixelsBegin) {
  for (auto const& [period, shift] : {std::pair(9.0, 0.0), {10.5, 0.0}, {5.0, 0.3}, {13.0 / 3.0, 0.0}}) {
    PatternSetOptions options;
    options.axes = PatternAxes::Columns;
    options.period = period;
    PatternSet set = PatternSet::builtIn("gray-phase", {512, 400}, options);
    for (PatternImage& image : set.images) {
      image.shift = image.role == PatternRole::Bit ? shift : 0.0;
    }
    PatternCapture capture;
    capture.size = {400, 60};
    capture.column = [](int x, int y) { return 100.3 + 0.25 * x + 0.05 * y; };
    capture.blur = 0.4;
    FoundStripes const found = find_stripes(set, capture.capture(set));
    StripeErrors const e =
        errorsOf(found.columns, 0.25, [](double x, double y) { return 100.3 + 0.25 * x + 0.05 * y; });
    EXPECT_NEAR(e.count / edgesAlongRows(set, capture), 1.0, 0.02) << period;
    EXPECT_EQ(e.unknown + e.wrong, 0.0) << period;
    EXPECT_NEAR(e.mean, 0.0, 0.003) << period;
    EXPECT_LT(e.rms, 0.06) << period;
  }
}

/// A camera on its side sees columns run along its rows.
TEST(FindStripes, StripesThatRunAlongRowsAreFoundAlongColumns) {
  PatternSet const set = graySet(true);
  PatternCapture capture = fineCapture();
  std::swap(capture.column, capture.row);
  FoundStripes const found = find_stripes(set, capture.capture(set));
  EXPECT_TRUE(std::all_of(found.columns.begin(), found.columns.end(),
                          [](StripePoint const& p) { return p.isAcross; }));
  StripeErrors const e =
      errorsOf(found.columns, 0.57, [](double x, double y) { return 60.7 + 0.57 * y - 0.04 * x; });
  EXPECT_EQ(e.wrong, 0.0);
  EXPECT_NEAR(e.normalized, 1.0, 0.12);
}

TEST(FindStripes, LinesHaveTheirTopInTheirMiddle) {
  for (bool const hasBlack : {true, false}) {
    PatternSet set = PatternSet::builtIn("multi-frequency", {640, 400});
    set.images.push_back(lines(16.0, 3.0, 5.0));
    if (hasBlack) {
      set.images.emplace_back().role = PatternRole::Black;
      set.images.emplace_back();
    }
    PatternCapture capture = fineCapture();
    capture.albedo = [](int x, int) { return 1.0 - 0.002 * x; };
    FoundStripes const found = find_stripes(set, capture.capture(set));
    StripeErrors const e =
        errorsOf(found.columns, 0.61, [](double x, double y) { return 100.3 + 0.61 * x + 0.05 * y; });
    double const expected = capture.size.height * capture.size.width * 0.61 / 16.0;
    EXPECT_NEAR(e.count / expected, 1.0, 0.06) << hasBlack;
    EXPECT_EQ(e.wrong, 0.0) << hasBlack;
    EXPECT_NEAR(e.mean, 0.0, hasBlack ? 0.01 : 0.03) << hasBlack << ", the albedo falls across lines";
    EXPECT_NEAR(e.normalized, 1.0, 0.25) << hasBlack;
    EXPECT_TRUE(found.rows.empty());
    for (StripePoint const& point : found.columns) {
      EXPECT_EQ(std::remainder(static_cast<double>(point.projector) + 5.0 - 1.0, 16.0), 0.0);
    }
  }
}

/// Where nothing is lit, noise alone crosses itself everywhere.
TEST(FindStripes, TheDarkHasNoEdges) {
  PatternSet const set = graySet(true);
  PatternCapture capture = fineCapture();
  capture.albedo = [](int x, int) { return x < 110 ? 1.0 : 0.01; };
  FoundStripes const found = find_stripes(set, capture.capture(set));
  EXPECT_GT(found.columns.size(), 1000U);
  EXPECT_TRUE(std::all_of(found.columns.begin(), found.columns.end(),
                          [](StripePoint const& p) { return p.point.x < 111.0F; }));
}

TEST(FindStripes, ClippedPixelsHaveNoEdges) {
  PatternSet const set = graySet(true);
  PatternCapture capture = fineCapture();
  capture.albedo = [](int x, int) { return x < 110 ? 1.0 : 2.6; };
  FoundStripes const found = find_stripes(set, capture.capture(set));
  EXPECT_GT(found.columns.size(), 1000U);
  EXPECT_TRUE(std::all_of(found.columns.begin(), found.columns.end(),
                          [](StripePoint const& p) { return p.point.x < 111.0F; }));
}

TEST(FindStripes, RealImagesMayHaveAnyUnitAndNoiseMayBeGiven) {
  PatternSet const set = graySet(true);
  PatternCapture capture = fineCapture();
  capture.type = CV_32FC1;
  std::vector<cv::Mat> const images = capture.capture(set);
  FoundStripes const found = find_stripes(set, images);
  constexpr double unit = 1.0 / 256.0;
  std::vector<cv::Mat> scaled;
  for (cv::Mat const& image : images) {
    scaled.push_back(image * unit);
  }
  FoundStripes const other = find_stripes(set, scaled);
  EXPECT_NEAR(found.noise, capture.noise, 0.1 * capture.noise);
  EXPECT_NEAR(other.noise / unit, found.noise, 0.01);
  ASSERT_GT(found.columns.size(), 1000U);
  ASSERT_EQ(other.columns.size(), found.columns.size());
  for (std::size_t i = 0; i < found.columns.size(); ++i) {
    EXPECT_NEAR(cv::norm(other.columns[i].point - found.columns[i].point), 0.0, 1e-3) << i;
    EXPECT_NEAR(other.columns[i].sigma / found.columns[i].sigma, 1.0, 0.01) << i;
  }
  StripeSettings settings;
  settings.decode.noise = 0.1;
  EXPECT_EQ(find_stripes(set, images, settings).noise, settings.decode.noise);
}

TEST(FindStripes, RefusesWhatHasNoEdges) {
  PatternSet const fringes = PatternSet::builtIn("multi-frequency", {640, 400});
  PatternCapture const capture = fineCapture();
  expectError([&] { find_stripes(fringes, capture.capture(fringes)); }, "neither bits nor lines");
  PatternSet const own = PatternSet::builtIn("xor4", {640, 400});
  expectError([&] { find_stripes(own, capture.capture(own)); }, "has no edges to be found");
  StripeSettings settings;
  settings.leastDeviations = 1.0;
  expectError([&] { find_stripes(graySet(true), {}, settings); }, "leastDeviations is 1");
  PatternSet const set = graySet(true);
  vorn::test::Watching observer(4);
  EXPECT_THROW(find_stripes(set, capture.capture(set), {}, &observer), Cancelled);
}

TEST(PatternSetLines, AreDescribedGeneratedAndChecked) {
  PatternSet set = PatternSet::builtIn("multi-frequency", {64, 40});
  set.images.push_back(lines(8.0, 2.0, 3.0, PatternAxis::Row));
  cv::Mat const shown = set.generate().back();
  for (int y = 0; y < shown.rows; ++y) {
    EXPECT_EQ(shown.at<uchar>(y, 5), (y + 3) % 8 < 2 ? 255 : 0) << y;
  }
  nlohmann::json json;
  set.write(json);
  PatternSet read;
  read.read(json);
  EXPECT_EQ(read.images.back().describe(), "lines of period 8 along rows");
  EXPECT_EQ(read.images.back().shift, 3.0);
  EXPECT_EQ(read.images.back().cell, 2.0);
  for (auto const& [bad, part] : {std::pair(lines(1.0, 1.0, 0.0), "period 1 "),
                                  {lines(8.0, 8.0, 0.0), "cell 8 "},
                                  {lines(8.0, 1.0, 0.5), "shift 0.5 "}}) {
    set.images.back() = bad;
    expectError([&] { set.validate(); }, part);
  }
}

} // namespace
} // namespace vorn::mv
