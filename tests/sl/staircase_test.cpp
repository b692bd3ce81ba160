// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/staircase.hpp"

#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/sl/decode_patterns.hpp>

#include "sl/pattern_capture.hpp"

namespace vorn::mv {
namespace {

using test::PatternCapture;

PatternCapture sharpCapture(double blur) {
  PatternCapture capture;
  capture.size = {210, 160};
  capture.showsPixels = true;
  capture.blur = blur;
  capture.noise = 0.5;
  capture.type = CV_32FC1;
  return capture;
}

DecodedPatterns decode(PatternSet const& set, PatternCapture const& capture, bool corrects) {
  DecodeSettings settings;
  settings.correctsStaircase = corrects;
  return decode_patterns(set, capture.capture(set), settings);
}

/// Root mean square of the mean errors at all parts of a pixel.
double systematic(cv::Mat_<float> const& map, std::function<double(int, int)> const& truth) {
  constexpr int parts = 40;
  std::vector<double> sums(parts, 0.0);
  std::vector<double> counts(parts, 1e-9);
  for (int y = 0; y < map.rows; ++y) {
    for (int x = 0; x < map.cols; ++x) {
      double const error = static_cast<double>(map(y, x)) - truth(x, y);
      if (map(y, x) >= 0 && std::fabs(error) < 1.0) {
        auto const part = static_cast<std::size_t>((truth(x, y) - std::floor(truth(x, y))) * parts);
        sums[part] += error;
        counts[part] += 1.0;
      }
    }
  }
  double squares = 0.0;
  for (std::size_t i = 0; i < sums.size(); ++i) {
    squares += std::pow(sums[i] / counts[i], 2) / parts;
  }
  return std::sqrt(squares);
}

TEST(Staircase, OfSharpPixelsIsTakenOff) {
  for (char const* const name : {"xor4", "heterodyne"}) {
    for (double const blur : {0.22, 0.3}) {
      PatternSet const set = PatternSet::builtIn(name, {640, 400});
      PatternCapture const capture = sharpCapture(blur);
      DecodedPatterns const plain = decode(set, capture, false);
      DecodedPatterns const straight = decode(set, capture, true);
      std::string const what = std::string(name) + " at blur " + std::to_string(blur);
      for (bool const isColumn : {true, false}) {
        auto const& truth = isColumn ? capture.column : capture.row;
        double const before = systematic(isColumn ? plain.column : plain.row, truth);
        double const after = systematic(isColumn ? straight.column : straight.row, truth);
        double const told = isColumn ? straight.staircaseColumn : straight.staircaseRow;
        EXPECT_GT(before, 0.035) << what;
        EXPECT_LT(after, 0.02) << what;
        EXPECT_NEAR(told / (std::sqrt(2.0) * before), 1.0, 0.2) << what;
      }
    }
  }
}

/// Where the light is flat, noise moves a place the farther.
TEST(Staircase, SigmaTellsWhatTheCorrectionMakesOfNoise) {
  PatternSet const set = PatternSet::builtIn("gray-phase", {640, 400});
  PatternCapture capture = sharpCapture(0.3);
  capture.noise = 3.0;
  DecodedPatterns const straight = decode(set, capture, true);
  test::PatternErrors const e = test::errorsOf(straight.column, straight.sigmaColumn, capture.column, 1.0);
  EXPECT_NEAR(e.meanSigma / e.rms, 1.0, 0.1);
  EXPECT_GT(straight.staircaseColumn, 0.05);
}

TEST(Staircase, SmoothLightStaysAsItIs) {
  PatternSet const set = PatternSet::builtIn("gray-phase", {640, 400});
  PatternCapture capture = sharpCapture(0.3);
  capture.showsPixels = false;
  DecodedPatterns const plain = decode(set, capture, false);
  DecodedPatterns const straight = decode(set, capture, true);
  EXPECT_EQ(straight.staircaseColumn, 0.0);
  EXPECT_EQ(cv::norm(plain.column, straight.column, cv::NORM_INF), 0.0);
}

/// A camera whose pixels meet the projector's one by one sees fractions that say nothing of stairs.
TEST(Staircase, UnevenSamplingIsNotTakenForStairs) {
  for (double const fraction : {0.0, 0.3}) {
    cv::Mat_<float> map(200, 300);
    for (int y = 0; y < map.rows; ++y) {
      for (int x = 0; x < map.cols; ++x) {
        map(y, x) = static_cast<float>(x + fraction + 0.02 * ((x * 7 + y * 3) % 5 - 2));
      }
    }
    cv::Mat_<float> const before = map.clone();
    EXPECT_EQ(sl::removeStaircase(map, nullptr, {}), 0.0) << fraction;
    EXPECT_EQ(cv::norm(map, before, cv::NORM_INF), 0.0);
  }
}

} // namespace
} // namespace vorn::mv
