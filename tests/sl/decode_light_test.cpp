// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/decode_patterns.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "sl/pattern_capture.hpp"

namespace vorn::mv {
namespace {

using test::builtIn;
using test::errorsOf;
using test::PatternCapture;
using test::PatternErrors;

TEST(DecodeLight, WhereDeepImagesClipIsFound) {
  for (int const type : {CV_16UC1, CV_32FC1}) {
    PatternCapture capture;
    capture.type = type;
    capture.mean = 2400.0;
    capture.amplitude = 2000.0; // crests beyond white
    capture.albedo = [](int x, int) { return x < 90 ? 1.0 : 0.7; };
    capture.noise = 4.0;
    capture.white = 4095.0;
    PatternSet const set = builtIn("gray-phase", 8);
    DecodedPatterns const decoded = decode_patterns(set, capture.capture(set));
    EXPECT_EQ(decoded.whiteLevel, 4095.0);
    PatternErrors const e = errorsOf(decoded.column, decoded.sigmaColumn, capture.column, 1.0);
    EXPECT_GT(e.decoded, 0.99);
    EXPECT_NEAR(e.rms / e.meanSigma, 1.0, 0.1) << "clipped samples bend a phase by tens of its sigma";
  }
}

/// Bits along rows are compared with the mean of the fringes along columns, which clipping may leave open.
TEST(DecodeLight, WhatTheOtherAxisCannotTellMakesNoBits) {
  PatternSet set = builtIn("gray-phase", 3, {640, 400}, PatternAxes::Columns);
  PatternSetOptions rows;
  rows.axes = PatternAxes::Rows;
  rows.hasInverses = false;
  for (PatternImage const& image : PatternSet::builtIn("gray", set.projector, rows).images) {
    if (image.role == PatternRole::Bit) {
      set.images.push_back(image);
    }
  }
  set.images.erase(std::remove_if(set.images.begin(), set.images.end(),
                                  [](PatternImage const& image) {
                                    return image.role == PatternRole::White ||
                                           image.role == PatternRole::Black;
                                  }),
                   set.images.end());
  PatternCapture capture;
  capture.albedo = [](int x, int) { return x < 90 ? 0.9 : 5.0; };
  DecodedPatterns const decoded = decode_patterns(set, capture.capture(set));
  int known = 0;
  int wrong = 0;
  for (int y = 0; y < capture.size.height; ++y) {
    for (int x = 0; x < capture.size.width; ++x) {
      bool const isKnown = decoded.row(y, x) >= 0.0F;
      known += isKnown ? 1 : 0;
      wrong += isKnown && std::fabs(decoded.row(y, x) - capture.row(x, y)) > 1.5 ? 1 : 0;
    }
  }
  EXPECT_GT(known, 0.4 * static_cast<double>(capture.size.area()));
  EXPECT_EQ(wrong, 0);
}

TEST(DecodeLight, WhatIsNotANumberIsNoBit) {
  constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
  PatternSet const set = [] {
    PatternSetOptions options;
    options.hasInverses = false;
    return PatternSet::builtIn("gray", {640, 400}, options);
  }();
  PatternCapture capture;
  capture.type = CV_32FC1;
  std::vector<cv::Mat> images = capture.capture(set);
  cv::Rect const hole(40, 30, 40, 30);
  for (std::size_t i = 0; i < images.size(); ++i) {
    if (set.images[i].role == PatternRole::Bit && set.images[i].bit == 6) {
      images[i](hole).setTo(notANumber);
    }
  }
  DecodeSettings settings;
  settings.noise = 1.0;
  DecodedPatterns const decoded = decode_patterns(set, images, settings);
  cv::Rect const inside(hole.x + 3, hole.y + 3, hole.width - 6, hole.height - 6);
  EXPECT_EQ(cv::countNonZero(decoded.column(inside) >= 0), 0);
  EXPECT_GT(cv::countNonZero(decoded.column >= 0), 0.8 * static_cast<double>(capture.size.area()));
}

/// Squares of levels of 16 bits have few digits left for what the samples deviate by.
TEST(DecodeLight, NoiseOfBrightDeepImagesAtSeveralExposures) {
  for (double const noise : {2.0, 16.0}) {
    PatternSet set = builtIn("gray-phase", 4, {640, 400}, PatternAxes::Columns);
    std::vector<PatternImage> const once = set.images;
    set.images.clear();
    for (double const exposure : {1.0, 2.0}) {
      for (PatternImage image : once) {
        image.exposure = exposure;
        set.images.push_back(image);
      }
    }
    PatternCapture capture;
    capture.type = CV_16UC1;
    capture.white = 65535.0;
    capture.mean = 15000.0;
    capture.amplitude = 13000.0;
    capture.noise = noise;
    DecodedPatterns const decoded = decode_patterns(set, capture.capture(set));
    EXPECT_NEAR(decoded.noise, std::hypot(noise, std::sqrt(1.0 / 12.0)), 0.08 * noise);
  }
}

/// As of linearised images, whose white is 1: noise, coordinates and sigmas do not depend on the unit.
TEST(DecodeLight, RealImagesMayHaveAnyUnit) {
  PatternCapture capture;
  capture.type = CV_32FC1;
  for (int const steps : {3, 4, 8}) { // each has its own way to tell the noise
    PatternSet const set = builtIn("gray-phase", steps);
    std::vector<cv::Mat> images = capture.capture(set);
    DecodedPatterns const decoded = decode_patterns(set, images);
    for (double const unit : {1.0 / 256.0, 1.0 / 4096.0}) {
      std::vector<cv::Mat> scaled;
      for (cv::Mat const& image : images) {
        scaled.push_back(image * unit);
      }
      DecodedPatterns const other = decode_patterns(set, scaled);
      EXPECT_NEAR(other.noise / unit, decoded.noise, 1e-4) << steps;
      EXPECT_EQ(cv::countNonZero(other.mask), 0) << steps;
      EXPECT_LT(cv::norm(other.column, decoded.column, cv::NORM_INF), 1e-4) << steps;
      EXPECT_LT(cv::norm(other.sigmaRow, decoded.sigmaRow, cv::NORM_INF), 1e-4) << steps;
    }
  }
}

/// Bits alone of real numbers: nothing says how bright white is, nor what the noise is.
TEST(DecodeLight, ShadowsInRealImagesOfBitsAreDark) {
  PatternSet const set = builtIn("gray");
  PatternCapture capture;
  capture.type = CV_32FC1;
  capture.mean = 0.5;
  capture.amplitude = 0.4;
  capture.noise = 0.0005;
  capture.albedo = [](int x, int) { return x < 90 ? 0.0 : 1.0; };
  DecodedPatterns const decoded = decode_patterns(set, capture.capture(set));
  EXPECT_EQ(cv::countNonZero(decoded.mask.colRange(0, 90) != static_cast<int>(PixelReason::Dark)), 0);
  EXPECT_LT(cv::countNonZero(decoded.mask.colRange(91, 180)), 0.02 * 90 * 120);
}

TEST(DecodeLight, SeveralExposuresCoverDarkAndShiningSurfaces) {
  // One with inverses, and one whose bits are compared with the fringes' mean.
  for (char const* const name : {"gray-phase", "xor4", "multi-frequency"}) {
    PatternSet set = builtIn(name);
    std::vector<PatternImage> const once = set.images;
    set.images.clear();
    for (double const exposure : {1.0, 4.0, 16.0}) {
      for (PatternImage image : once) {
        image.exposure = exposure;
        set.images.push_back(image);
      }
    }
    PatternCapture capture;
    capture.albedo = [](int x, int y) {
      double const highlight = 2.0 * std::exp(-0.01 * ((x - 150) * (x - 150) + (y - 60) * (y - 60)));
      return ((x / 12) % 3 == 0 ? 0.03 : (x / 12) % 3 == 1 ? 0.3 : 0.9) + highlight;
    };
    capture.mean = 1300.0;
    capture.amplitude = 1100.0;
    std::vector<cv::Mat> const images = capture.capture(set);
    DecodeSettings alone;
    alone.usesNeighbours = false;
    // Bright pixels have their bits at the shortest exposure, dark ones at the longest.
    cv::Mat_<float> const own = decode_patterns(set, images, alone).column;
    for (int const strip : {0, 1, 2}) {
      cv::Mat const column = own.colRange(12 * strip + 36, 12 * strip + 48);
      EXPECT_GT(cv::countNonZero(column >= 0), 0.5 * static_cast<double>(column.total())) << name << strip;
    }
    DecodedPatterns const decoded = decode_patterns(set, images);
    PatternErrors const e = errorsOf(decoded.column, decoded.sigmaColumn, capture.column, 1.0);
    EXPECT_GT(e.decoded, 0.95) << name;
    EXPECT_EQ(e.wrong, 0.0) << name;
    EXPECT_NEAR(e.meanSigma / e.rms, 1.0, 0.1);
  }
}

} // namespace
} // namespace vorn::mv
