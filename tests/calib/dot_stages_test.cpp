// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/// Stages of the target finder by themselves.

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <optional>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/core/library.hpp>

#include "calib/target/bright_blobs.hpp"
#include "calib/target/bright_mask.hpp"
#include "calib/target/dot_candidate.hpp"
#include "calib/target/dot_centre.hpp"
#include "calib/target/dot_edge.hpp"
#include "calib/target/target_map.hpp"
#include "calib/target/target_measurement.hpp"
#include "calib/target/target_rejection.hpp"
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

// What noise does to the area is foretold from one image, for small dots whose levels few pixels tell as
// well.
TEST(DotMeasurement, ForetellsWhatNoiseDoesToTheArea) {
  constexpr double noise = 4;
  constexpr double contrast = 100;
  constexpr int draws = 400;
  cv::RNG random(11);
  for (double const radius : {4.5, 6.0, 8.0, 13.0}) {
    cv::Mat_<float> clean(81, 81);
    constexpr int samples = 8;
    for (int y = 0; y < clean.rows; ++y) {
      for (int x = 0; x < clean.cols; ++x) {
        int inside = 0;
        for (int i = 0; i < samples * samples; ++i) {
          double const dx = x - 40.3 + (i % samples + 0.5) / samples - 0.5;
          double const dy = y - 39.8 + (i / samples + 0.5) / samples - 0.5;
          inside += std::hypot(dx, dy) < radius ? 1 : 0;
        }
        clean(y, x) = static_cast<float>(50 + contrast * inside / (samples * samples));
      }
    }
    double sum = 0;
    double squares = 0;
    double foretold2 = 0;
    for (int draw = 0; draw < draws; ++draw) {
      cv::Mat_<float> image(clean.size());
      random.fill(image, cv::RNG::NORMAL, 0, noise);
      image += clean;
      auto const dot = measureDot(image, {40, 40}, {cv::Matx22d::eye() * radius, 2.1}, 2.5);
      ASSERT_TRUE(dot) << radius;
      sum += dot->area;
      squares += dot->area * dot->area;
      foretold2 += dot->areaNoise * dot->areaNoise;
    }
    double const scatter = std::sqrt((squares - sum * sum / draws) / (draws - 1));
    double const ratio = scatter / std::sqrt(foretold2 / draws); // of 400 draws, to 0.035
    EXPECT_GT(ratio, 0.8) << radius; // edges of the smallest dots lie within their bands by less than half
    EXPECT_LT(ratio, 1.12) << radius;
  }
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

// The element takes off what is at most twice its radius wide: necks that join dots.
TEST(DotCandidates, AreNotJoinedByANeckThatTheElementTakesOff) {
  TargetSettings settings;
  settings.blurRadius = 0;
  settings.minDotArea = 100;
  settings.maxDotArea = 2000;
  for (int const radius : {0, 1, 2}) {
    for (int const neck : {1, 2, 3, 4, 5}) {
      cv::Mat image(120, 160, CV_8U, cv::Scalar(40));
      cv::rectangle(image, {50, 60, 60, neck}, cv::Scalar(200), cv::FILLED);
      for (cv::Point const& centre : {cv::Point(50, 60), cv::Point(110, 60)}) {
        cv::circle(image, centre, 12, cv::Scalar(200), cv::FILLED);
      }
      settings.morphRadius = radius;
      ReducedImage level = reduce(image, 1);
      std::size_t const found = findCandidates(level, settings, {}).size();
      EXPECT_EQ(found, neck <= 2 * radius ? 2U : 0U) << "a neck of " << neck << ", radius " << radius;
    }
  }
}

TEST(BrightBlobs, AreWhatAFloodFromOutsideLeaves) {
  cv::RNG random(5);
  cv::Mat image(240, 320, CV_8U);
  random.fill(image, cv::RNG::UNIFORM, 0, 255);
  cv::GaussianBlur(image, image, {}, 2.5);
  cv::Mat const ground = image < 128; // 255 there
  cv::Mat const bright = ~ground;
  cv::Mat labels;
  cv::Mat figures;
  cv::Mat centres;
  int const count = cv::connectedComponentsWithStats(bright, labels, figures, centres, 4);
  std::vector<BrightBlob> const blobs = findBlobs(ground, 12, 900);
  std::size_t next = 0;
  int holes = 0;
  for (int label = 1; label < count; ++label) { // by first rows too
    int const pixels = figures.at<int>(label, cv::CC_STAT_AREA);
    cv::Rect const box(figures.at<int>(label, cv::CC_STAT_LEFT), figures.at<int>(label, cv::CC_STAT_TOP),
                       figures.at<int>(label, cv::CC_STAT_WIDTH), figures.at<int>(label, cv::CC_STAT_HEIGHT));
    if (box.x == 0 || box.y == 0 || box.br().x == image.cols || box.br().y == image.rows || pixels < 12 ||
        pixels > 900) {
      continue;
    }
    cv::Mat around = labels != label;
    cv::floodFill(around, {0, 0}, 128, nullptr, {}, {}, 8); // from outside: all but the blob and its holes
    cv::Moments const m = cv::moments(around != 128, true);
    holes += m.m00 > pixels ? 1 : 0;
    ASSERT_LT(next, blobs.size());
    BrightBlob const& blob = blobs[next++];
    EXPECT_EQ(blob.box, box);
    EXPECT_EQ(blob.area, m.m00);
    EXPECT_LT(cv::norm(blob.centre - cv::Point2d(m.m10 / m.m00, m.m01 / m.m00)), 1e-9);
    EXPECT_NEAR(blob.xx - 1.0 / 12, m.mu20 / m.m00, 1e-6);
    EXPECT_NEAR(blob.xy, m.mu11 / m.m00, 1e-6);
    EXPECT_NEAR(blob.yy - 1.0 / 12, m.mu02 / m.m00, 1e-6);
  }
  EXPECT_EQ(next, blobs.size());
  EXPECT_GT(blobs.size(), 50U);
  EXPECT_GT(holes, 2);
}

TEST(BrightMask, IsWhatStandsOutFromAGaussian) {
  cv::RNG random(8);
  for (cv::Size const& size : {cv::Size(163, 98), cv::Size(40, 41)}) {
    cv::Mat image(size, CV_8U);
    random.fill(image, cv::RNG::UNIFORM, 0, 255);
    cv::GaussianBlur(image, image, {}, 3);
    cv::normalize(image, image, 20, 235, cv::NORM_MINMAX);
    cv::Mat smooth;
    image.convertTo(smooth, CV_32F);
    cv::GaussianBlur(smooth, smooth, {}, 7, 7, cv::BORDER_REPLICATE);
    cv::Mat const ground = groundOf(image, 7, 3, {});
    constexpr int margin = 8; // where what lies beyond the image matters, and no dot is whole
    for (int y = margin; y < size.height - margin; ++y) {
      for (int x = margin; x < size.width - margin; ++x) {
        double const excess = image.at<std::uint8_t>(y, x) - static_cast<double>(smooth.at<float>(y, x));
        if (std::abs(excess - 3.5) > 2) { // a Gaussian drawn out from a quarter is off by little
          ASSERT_EQ(ground.at<std::uint8_t>(y, x), excess > 3.5 ? 0 : 255) << x << ", " << y;
        }
      }
    }
  }
}

/// A dark dot on bright ground, of which a shadow with a soft edge takes a share of the light, as the finder
/// sees it: bright on dark.
cv::Mat dotInShadow(cv::Point2d const& centre, double radius, double share, double edgeAt,
                    double softness = 4) {
  constexpr int fine = 8; // samples along either side of a pixel
  cv::Mat image(80, 80, CV_8U);
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      double sum = 0;
      for (int i = 0; i < fine * fine; ++i) {
        cv::Point2d const p(x + (i % fine + 0.5) / fine - 0.5, y + (i / fine + 0.5) / fine - 0.5);
        double const lit = 1 - share / (1 + std::exp((0.8 * p.x + 0.6 * p.y - edgeAt) / softness));
        sum += lit * (cv::norm(p - centre) < radius ? 15 : 180);
      }
      image.at<std::uint8_t>(y, x) = cv::saturate_cast<std::uint8_t>(255 - sum / (fine * fine));
    }
  }
  return image;
}

TEST(DotMeasurement, TheEdgeOfAShadowDoesNotMoveADot) {
  constexpr double radius = 14;
  cv::Point2d const centre(40.3, 39.6);
  DotShape const shape{cv::Matx22d::eye() * radius, 2.1};
  for (double const edgeAt : {42.0, 48.0, 56.0, 64.0, 70.0}) { // from one rim to the other, 56 the middle
    cv::Mat const image = dotInShadow(centre, radius, 0.4, edgeAt);
    auto const dot = measureDot(image, centre + cv::Point2d(1.5, -1), shape, 4);
    ASSERT_TRUE(dot) << edgeAt;
    auto const refined = fitEdge(image, *dot, shape.outline, 0.4);
    ASSERT_TRUE(refined) << edgeAt;
    EXPECT_LT(cv::norm(*refined - centre), 0.03) << edgeAt;
    EXPECT_NEAR(std::sqrt(dot->area / CV_PI), radius, 0.1) << edgeAt;
  }
  EXPECT_FALSE(measureDot(dotInShadow(centre, radius, 0.8, 56, 0.3), centre, shape, 4)) << "nearly black";
}

TEST(DotMeasurement, WhatCoversADotIsNoShadow) {
  constexpr double radius = 14;
  cv::Point2d const centre(40, 40);
  auto const measureCovered = [&](int uncovered) {
    cv::Mat image = dotInShadow(centre, radius, 0, 0);
    image.colRange(40 + uncovered, 80).setTo(150); // of 75 and 240
    return measureDot(image, centre, {cv::Matx22d::eye() * radius, 2.1}, 4);
  };
  EXPECT_TRUE(measureCovered(25)) << "beside the dot";
  for (int uncovered = 4; uncovered <= 12; ++uncovered) {
    EXPECT_FALSE(measureCovered(uncovered)) << uncovered;
  }
}

/// A grid of dots of one size and their places in the image.
MeasuredGrid measuredGrid(std::function<cv::Point2d(cv::Point const&)> const& place) {
  std::vector<MeasuredDot> dots;
  for (int y = 0; y < 8; ++y) {
    for (int x = 0; x < 10; ++x) {
      MeasuredDot dot;
      dot.index = {x, y};
      dot.measured.centre = place({x, y});
      dot.measured.area = CV_PI * 100;
      dot.measured.levels.contrast.value = 100;
      dots.push_back(dot);
    }
  }
  MeasuredGrid grid(dots);
  for (MeasuredDot& dot : dots) {
    auto const local = grid.map()->around(dot.index, TargetMap::Self::Included);
    dot.radius =
        std::sqrt(dot.measured.area / (CV_PI * std::abs(cv::determinant(local->jacobian(dot.index)))));
  }
  grid.replace(dots);
  return grid;
}

TEST(DropMissized, ABentRimLeavesItsDotsTheirSize) {
  cv::RNG random(3);
  MeasuredGrid grid = measuredGrid([&](cv::Point const& index) {
    cv::Point2d place(100 + 40.0 * index.x, 100 + 40.0 * index.y);
    place += cv::Point2d(random.gaussian(0.02), random.gaussian(0.02));
    if (index.x < 2) { // lifted, more in the middle
      place.x -= (2 - index.x) * 5 * std::exp(-0.5 * (index.y - 3) * (index.y - 3));
    }
    return place;
  });
  double mostOff = 0;
  for (MeasuredDot const& dot : grid.dots()) {
    mostOff = std::max(mostOff, std::abs(dot.radius * 4 - 1));
  }
  ASSERT_GT(mostOff, 0.02) << "the grid's local maps are to be wrong about some dots' sizes";
  std::vector<MeasuredDot> dots = grid.dots();
  dots[79].radius *= 0.95;
  grid.replace(dots);
  cv::Mat const image;
  TargetSettings const settings;
  dropMissized(grid, GridMeasurement(image, settings, false, 0.25));
  EXPECT_EQ(grid.dots().size(), 79U);
  EXPECT_NE(grid.dots().back().index, cv::Point(9, 7)) << "a dot that is smaller where the map holds";
}

// What noise does to a radius is measured on many noisy dots: some times that is no reason to drop a dot.
TEST(DropMissized, ADotMayBeOffByItsNoise) {
  constexpr double radius = 6;
  constexpr double noise = 12;
  constexpr int draws = 400;
  cv::RNG random(21);
  std::optional<DotMeasurement> measured;
  double sum = 0;
  double squares = 0;
  for (int i = 0; i < draws; ++i) {
    cv::Point2d const centre(20 + random.uniform(-0.5, 0.5), 20 + random.uniform(-0.5, 0.5));
    cv::Mat image(41, 41, CV_8U);
    for (int y = 0; y < image.rows; ++y) {
      for (int x = 0; x < image.cols; ++x) {
        double const lit = std::clamp(radius + 0.5 - std::hypot(x - centre.x, y - centre.y), 0.0, 1.0);
        image.at<std::uint8_t>(y, x) =
            cv::saturate_cast<std::uint8_t>(60 + 120 * lit + random.gaussian(noise));
      }
    }
    measured = measureDot(image, centre, {cv::Matx22d::eye() * radius, 2.1}, 4);
    ASSERT_TRUE(measured) << i;
    double const found = std::sqrt(measured->area / CV_PI);
    sum += found / draws;
    squares += found * found / draws;
  }
  double const sigma = std::sqrt(squares - sum * sum) / radius;
  ASSERT_GT(sigma, 0.004) << "more than what prints differ by";
  for (double const off : {3.0, 9.0}) {
    MeasuredGrid grid =
        measuredGrid([](cv::Point const& index) { return cv::Point2d(40.0 * index.x, 40.0 * index.y); });
    std::vector<MeasuredDot> dots = grid.dots();
    for (MeasuredDot& dot : dots) {
      dot.measured.area = measured->area;
      dot.measured.levels = measured->levels;
      dot.measured.areaNoise = measured->areaNoise;
    }
    dots[44].radius *= 1 - off * sigma;
    grid.replace(dots);
    cv::Mat const image;
    TargetSettings const settings;
    dropMissized(grid, GridMeasurement(image, settings, false, 0.25));
    EXPECT_EQ(grid.dots().size(), off < 5 ? 80U : 79U) << off << " times " << sigma;
  }
}

TEST(TargetMap, SpreadOfACellIsThatOfItsAreaOverNoise) {
  constexpr double noise = 0.3;
  constexpr int draws = 400;
  cv::RNG random(11);
  for (cv::Point const& at : {cv::Point(4, 4), cv::Point(0, 3), cv::Point(9, 0)}) {
    double areas = 0;
    double squares = 0;
    double foretold = 0;
    for (int i = 0; i < draws; ++i) {
      std::vector<TargetDot> dots;
      for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 10; ++x) {
          dots.push_back({{x, y}, {40.0 * x + random.gaussian(noise), 30.0 * y + random.gaussian(noise)}});
        }
      }
      auto const map = TargetMap::fit(dots);
      auto const local = map->around(at, TargetMap::Self::LeftOut);
      double const area = std::abs(cv::determinant(local->jacobian(at))) / (40 * 30);
      areas += area;
      squares += area * area;
      foretold += map->cellSpread(at).value();
    }
    double const spread = std::sqrt(squares / draws - areas * areas / draws / draws);
    EXPECT_NEAR(foretold / draws / spread, 1, 0.15) << at;
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
