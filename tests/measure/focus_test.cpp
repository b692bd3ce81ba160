// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <sim/demo.hpp>
#include <sim/render.hpp>

#include <vorn/mv/measure/focus.hpp>

#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

using test::expectError;

constexpr FocusMeasure measures[] = {FocusMeasure::LaplacianVariance, FocusMeasure::Tenengrad,
                                     FocusMeasure::EdgeWidth};

/// Discs of several greys, blurred as a lens and a pixel blur them (drawn four times larger), with noise.
cv::Mat_<float> scene(double blur, double contrast, double noise, cv::Size size = {160, 128}) {
  constexpr int fine = 4;
  cv::Mat_<float> large(size * fine, 60.0F);
  cv::RNG where(7); // the same scene each time
  for (int i = 0; i < size.area() / 800; ++i) {
    cv::Point const centre(where.uniform(0, large.cols), where.uniform(0, large.rows));
    cv::circle(large, centre, fine * where.uniform(5, 12),
               cv::Scalar(60.0 + contrast * where.uniform(-0.5, 1.0)), cv::FILLED);
  }
  cv::GaussianBlur(large, large, {}, fine * blur, fine * blur, cv::BORDER_REPLICATE);
  cv::Mat_<float> image;
  cv::resize(large, image, size, 0, 0, cv::INTER_AREA);
  cv::Mat_<float> grain(size);
  cv::theRNG().fill(grain, cv::RNG::NORMAL, 0.0, std::max(noise, 1e-9));
  grain += image;
  return grain;
}

/// The place of a series' extreme, in steps, by a parabola through the three images around it.
double extremeOf(std::vector<double> const& values) {
  auto const best = static_cast<int>(std::max_element(values.begin(), values.end()) - values.begin());
  if (best == 0 || best + 1 == static_cast<int>(values.size())) {
    return best;
  }
  double const before = values[static_cast<std::size_t>(best - 1)];
  double const here = values[static_cast<std::size_t>(best)];
  double const after = values[static_cast<std::size_t>(best + 1)];
  return best + 0.5 * (before - after) / (before - 2.0 * here + after);
}

/// The place of the sharpest image of a series by a measure, in steps.
double sharpestOf(std::vector<cv::Mat> const& series, FocusMeasure measure) {
  FocusSettings settings;
  settings.measure = measure;
  std::vector<double> values;
  for (cv::Mat const& image : series) {
    double const value = calcFocus(image, settings).value;
    values.push_back(measure == FocusMeasure::EdgeWidth ? -value : value);
  }
  return extremeOf(values);
}

TEST(Focus, EachMeasureHasItsExtremeAtTheSharpImage) {
  struct Case {
    double contrast, noise, sharpest;
  };
  for (Case const& one : {Case{120, 0.0, 4.0}, Case{120, 3.0, 3.6}, Case{12, 1.0, 4.3}}) {
    std::vector<cv::Mat> series;
    for (int i = 0; i < 9; ++i) {
      // A lens's circle of confusion grows with the distance from focus; its best is not perfect.
      series.emplace_back(scene(std::hypot(0.5, 0.6 * (i - one.sharpest)), one.contrast, one.noise));
    }
    for (FocusMeasure const measure : measures) {
      EXPECT_NEAR(sharpestOf(series, measure), one.sharpest, 0.25)
          << "measure " << static_cast<int>(measure) << ", contrast " << one.contrast << ", noise "
          << one.noise;
    }
  }
}

/// What the virtual rig's camera sees in white light with its lens so many steps from focus.
cv::Mat seenByTheRig(double steps, double light, int number) {
  constexpr double stepBlur = 0.6; // px that the circle of confusion grows with each step
  sim::Rig rig = sim::demoRig(4);
  rig.camera.blur = std::hypot(rig.camera.blur, stepBlur * steps);
  rig.camera.sensor.exposure *= light;
  cv::Mat const white(rig.projector.device.resolution(), CV_8UC1, cv::Scalar(255));
  return sim::ProjectorView(rig.camera, rig.projector, sim::demoScene()).capture({white}, number).front();
}

TEST(Focus, OnTheVirtualRigEachMeasureIsExtremeInFocus) {
  constexpr double inFocus = 3.35;
  constexpr int images = 8;
  for (double const light : {1.0, 0.1}) { // well lit, and a tenth of it: more noise for the same contrast
    std::vector<cv::Mat> series;
    for (int i = 0; i < images; ++i) {
      series.push_back(seenByTheRig(i - inFocus, light, i));
    }
    for (FocusMeasure const measure : measures) {
      EXPECT_NEAR(sharpestOf(series, measure), inFocus, 0.25)
          << "measure " << static_cast<int>(measure) << ", light " << light;
    }
  }
}

TEST(Focus, WhatIsNotFiniteTakesNoPart) {
  cv::Mat_<float> const image = scene(1.5, 120, 1.0, {320, 240});
  cv::Mat_<float> flat = image.clone();
  flat(cv::Rect(0, 0, 160, 240)).setTo(100);
  cv::theRNG().fill(flat(cv::Rect(0, 0, 160, 240)), cv::RNG::NORMAL, 100, 1);
  for (cv::Mat_<float> const& whole : {image, flat}) {
    for (FocusMeasure const measure : measures) {
      FocusSettings settings;
      settings.measure = measure;
      settings.cell = 80;
      Focus const expected = calcFocus(whole, settings);
      for (float const value : {NAN, INFINITY, -INFINITY}) {
        cv::Mat_<float> damaged = whole.clone();
        damaged(cv::Rect(100, 110, 10, 10)).setTo(value);
        damaged(4, 4) = value;
        Focus const found = calcFocus(damaged, settings);
        EXPECT_NEAR(found.value, expected.value, 0.1 * expected.value) << static_cast<int>(measure);
        EXPECT_TRUE(settings.mask.empty());
        // The cells that no filter carries the damage into.
        for (cv::Point const cell : {cv::Point(3, 0), cv::Point(3, 1), cv::Point(3, 2)}) {
          float const here = expected.map.at<float>(cell);
          EXPECT_NEAR(found.map.at<float>(cell), here, measure == FocusMeasure::EdgeWidth ? 0.05F * here : 0);
        }
      }
      EXPECT_TRUE(std::isnan(calcFocus(cv::Mat_<float>(50, 60, NAN), settings).value));
    }
  }
}

TEST(Focus, TheWidthOfEdgesIsTheirBlur) {
  FocusSettings settings;
  settings.measure = FocusMeasure::EdgeWidth;
  for (double const blur : {0.5, 1.0, 1.5, 2.0}) {
    // A pixel's own width blurs too, by the deviation of a box.
    double const expected = std::hypot(blur, std::sqrt(1.0 / 12.0));
    Focus const focus = calcFocus(scene(blur, 120, 1.0, {240, 200}), settings);
    EXPECT_NEAR(focus.value, expected, 0.1 * expected + (blur < 0.7 ? 0.15 : 0.05)) << blur;
    EXPECT_GT(focus.edges, 300U);
  }
}

TEST(Focus, TheMapShowsWhereItIsSharp) {
  cv::Mat image;
  cv::hconcat(scene(0.5, 120, 1.0, {256, 128}), scene(2.0, 120, 1.0, {256, 128}), image);
  for (FocusMeasure const measure : measures) {
    FocusSettings settings;
    settings.measure = measure;
    cv::Mat_<float> const map = calcFocus(image, settings).map;
    ASSERT_EQ(map.size(), cv::Size(8, 2));
    double const sharp = cv::mean(map.colRange(0, 4), map.colRange(0, 4) == map.colRange(0, 4))[0];
    double const blurred = cv::mean(map.colRange(4, 8), map.colRange(4, 8) == map.colRange(4, 8))[0];
    if (measure == FocusMeasure::EdgeWidth) {
      EXPECT_LT(1.5 * sharp, blurred);
    } else {
      EXPECT_GT(sharp, 1.5 * blurred);
    }
  }
}

TEST(Focus, BrightnessChangesNothingAndMaskedPixelsDoNotCount) {
  cv::Mat_<float> const image = scene(1.0, 120, 0.5);
  cv::Mat eight;
  image.convertTo(eight, CV_8U);
  cv::Mat sixteen;
  image.convertTo(sixteen, CV_16U, 200.0);
  for (FocusMeasure const measure : measures) {
    FocusSettings settings;
    settings.measure = measure;
    double const value = calcFocus(image, settings).value;
    EXPECT_NEAR(calcFocus(sixteen, settings).value, value, 0.001 * value);
    EXPECT_NEAR(calcFocus(eight, settings).value, value, 0.02 * value);
    cv::Mat color;
    cv::cvtColor(eight, color, cv::COLOR_GRAY2BGR);
    EXPECT_EQ(calcFocus(color, settings).value, calcFocus(eight, settings).value);

    cv::Mat wild = image.clone();
    wild.colRange(0, 60).setTo(5000.0F);
    settings.mask = cv::Mat::ones(image.size(), CV_8U);
    settings.mask.colRange(0, 72).setTo(0);
    double const right = calcFocus(image, settings).value;
    if (measure != FocusMeasure::EdgeWidth) { // whose threshold knows the whole image
      EXPECT_NEAR(calcFocus(wild, settings).value, right, 0.01 * right);
    }
    settings.mask.setTo(0);
    EXPECT_TRUE(std::isnan(calcFocus(image, settings).value));
  }
}

TEST(Focus, WithoutEdgesTheirWidthIsUnknown) {
  FocusSettings settings;
  settings.measure = FocusMeasure::EdgeWidth;
  Focus const focus = calcFocus(cv::Mat(100, 100, CV_8UC1, cv::Scalar(80)), settings);
  EXPECT_TRUE(std::isnan(focus.value));
  EXPECT_EQ(focus.edges, 0U);
  EXPECT_EQ(calcFocus(cv::Mat(100, 100, CV_8UC1, cv::Scalar(0))).value, 0.0);
  EXPECT_NO_THROW(calcFocus(cv::Mat(1, 1, CV_8UC1, cv::Scalar(0)), settings));
}

TEST(Focus, RefusesWhatItCannotJudge) {
  cv::Mat const image = cv::Mat::zeros(20, 20, CV_8UC1);
  expectError([] { calcFocus(cv::Mat()); }, "empty");
  expectError([] { calcFocus(cv::Mat::zeros(5, 5, CV_8UC2)); }, "channels");
  FocusSettings settings;
  settings.cell = 2;
  expectError([&] { calcFocus(image, settings); }, "not 2");
  settings = {};
  settings.smoothing = std::numeric_limits<double>::quiet_NaN();
  expectError([&] { calcFocus(image, settings); }, "smoothing");
  settings = {};
  settings.mask = cv::Mat::ones(5, 5, CV_8U);
  expectError([&] { calcFocus(image, settings); }, "mask");
}

} // namespace
} // namespace vorn::mv
