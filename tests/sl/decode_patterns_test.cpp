// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/decode_patterns.hpp>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "sl/pattern_capture.hpp"

namespace vorn::mv {
namespace {

using test::boundOf;
using test::builtIn;
using test::errorsOf;
using test::PatternCapture;
using test::PatternErrors;

void expectAtBound(PatternErrors const& e, double bound, std::string const& what) {
  EXPECT_GT(e.decoded, 0.999) << what;
  EXPECT_EQ(e.wrong, 0.0) << what;
  EXPECT_LT(e.rms / bound, 1.02) << what;
  EXPECT_NEAR(e.meanSigma / e.rms, 1.0, 0.05) << what;
}

TEST(DecodePatterns, EveryBuiltInSetReachesTheBoundOfLeastSquares) {
  for (std::string const name : {"xor4", "gray-phase", "multi-frequency", "heterodyne"}) {
    for (int const steps : {3, 4, 5, 8}) {
      if (name == "xor4" && steps != 4) {
        continue;
      }
      PatternSet set = builtIn(name, name == "xor4" ? 0 : steps);
      if (steps == 5) { // those go the other way from somewhere else, and stripes begin elsewhere
        for (PatternImage& image : set.images) {
          image.sign = -1;
          image.offset = 33.0;
          image.shift = 2.0;
        }
      }
      PatternCapture const capture;
      DecodedPatterns const decoded = decode_patterns(set, capture.capture(set));
      std::string const what = name + " of " + std::to_string(steps) + " steps";
      expectAtBound(errorsOf(decoded.column, decoded.sigmaColumn, capture.column, 1.0),
                    boundOf(set, PatternAxis::Column, capture), what);
      expectAtBound(errorsOf(decoded.row, decoded.sigmaRow, capture.row, 1.0),
                    boundOf(set, PatternAxis::Row, capture), what);
      EXPECT_NEAR(decoded.noise, std::hypot(1.0, 0.2887), 0.08) << what;
      EXPECT_EQ(cv::countNonZero(decoded.mask), 0) << what;
    }
  }
}

/// Half a stripe of one pixel at most, and less where a bit's margin tells the place within.
TEST(DecodePatterns, BitsAloneGiveTheStripe) {
  for (bool const hasInverses : {true, false}) {
    PatternSetOptions options;
    options.hasInverses = hasInverses;
    PatternSet const set = PatternSet::builtIn("gray", {640, 400}, options);
    PatternCapture const capture;
    DecodedPatterns const decoded = decode_patterns(set, capture.capture(set));
    PatternErrors const e = errorsOf(decoded.column, decoded.sigmaColumn, capture.column, 1.0);
    EXPECT_GT(e.decoded, 0.99);
    EXPECT_EQ(e.wrong, 0.0);
    EXPECT_LT(e.rms, 0.29);
    EXPECT_NEAR(e.systematic, 0.0, 0.01);
    EXPECT_NEAR(decoded.modulation(60, 90), 80.0F, 8.0F);
  }
}

/// Their middles are those of the pixels that show them.
TEST(DecodePatterns, StripesOfNoWholeNumberOfPixelsHaveNoBias) {
  PatternCapture capture;
  capture.column = [](int x, int y) { return 20.0 + 0.5 * x + 0.21 * y; };
  for (double const cell : {1.5, 2.5, 4.25}) {
    PatternSet set = builtIn("gray", 0, {640, 400}, PatternAxes::Columns);
    for (PatternImage& image : set.images) {
      image.cell = cell;
    }
    DecodedPatterns const decoded = decode_patterns(set, capture.capture(set));
    PatternErrors const e = errorsOf(decoded.column, decoded.sigmaColumn, capture.column, cell);
    EXPECT_GT(e.decoded, 0.99) << cell;
    EXPECT_EQ(e.wrong, 0.0) << cell;
    EXPECT_NEAR(e.systematic, 0.0, 0.02) << cell;
  }
}

/// The fringe alone tells the order where a stripe's pixels reach over its own border.
TEST(DecodePatterns, EveryPeriodOfGrayPhaseIsDecodedAtTheBound) {
  for (double const period : {3.0, 4.0, 4.5, 5.0, 6.5, 7.0, 9.0, 10.5, 17.3}) {
    PatternSetOptions options;
    options.axes = PatternAxes::Columns;
    options.period = period;
    PatternSet const set = PatternSet::builtIn("gray-phase", {640, 400}, options);
    PatternCapture capture;
    capture.column = [](int x, int y) { return 20.0 + 0.5 * x + 0.13 * y; };
    DecodeSettings settings;
    settings.usesNeighbours = false;
    for (bool const usesNeighbours : {false, true}) {
      settings.usesNeighbours = usesNeighbours;
      DecodedPatterns const decoded = decode_patterns(set, capture.capture(set), settings);
      PatternErrors const e = errorsOf(decoded.column, decoded.sigmaColumn, capture.column, 1.0);
      EXPECT_GT(e.decoded, usesNeighbours ? 0.998 : 0.95) << period;
      EXPECT_EQ(e.wrong, 0.0) << period;
      EXPECT_LT(e.rms, 1.06 * boundOf(set, PatternAxis::Column, capture)) << period;
      EXPECT_TRUE(decoded.doubts.empty()) << period << ' ' << decoded.doubts[0].text;
    }
  }
}

/// Words of neighbouring stripes of the set xor4 differ in all bits but where a carry goes through them:
/// there in the lowest one alone, as at borders, and noise makes that weak anywhere in either stripe.
TEST(DecodePatterns, AWeakBitIsNoBorderWhereThePixelIsBeyondTheStripe) {
  PatternSetOptions options;
  options.axes = PatternAxes::Columns;
  PatternSet const set = PatternSet::builtIn("xor4", {1280, 800}, options);
  PatternCapture capture;
  capture.size = {250, 160};
  capture.amplitude = 60.0;
  capture.noise = 8.2;
  capture.blur = 0.7;
  capture.showsPixels = true;
  capture.column = [](int x, int) { return 1008.0 + 16.0 * x / 250.0; }; // words 255 and 256 within
  DecodedPatterns const decoded = decode_patterns(set, capture.capture(set));
  PatternErrors const e = errorsOf(decoded.column, decoded.sigmaColumn, capture.column, 2.0);
  EXPECT_LT(e.wrong, 2e-4);
  EXPECT_GT(e.decoded, 0.7);
}

/// The ratio of the periods and the noise are such that one order in a million is wrong: 4.9 standard
/// deviations of what tells it from its neighbours. Steps of the surface give growth its chance to err.
TEST(DecodePatterns, NoiseMakesNoWrongOrders) {
  for (char const* const name : {"xor4", "gray-phase", "multi-frequency", "heterodyne"}) {
    PatternSet const set = builtIn(name);
    PatternCapture capture;
    capture.noise = 11.0;
    capture.column = [](int x, int y) {
      return 20.3 + 1.37 * x + 0.21 * y + (x > 90 ? 60.0 : 0.0) + ((x / 20 + y / 20) % 7 == 0 ? 33.0 : 0.0);
    };
    DecodeSettings whole;
    whole.dropsEdges = false; // orders are what is asked for, beside the steps too
    DecodedPatterns const decoded = decode_patterns(set, capture.capture(set), whole);
    PatternErrors const columns = errorsOf(decoded.column, decoded.sigmaColumn, capture.column, 2.5);
    PatternErrors const rows = errorsOf(decoded.row, decoded.sigmaRow, capture.row, 4.0);
    EXPECT_EQ(columns.wrong, 0.0) << name;
    EXPECT_EQ(rows.wrong, 0.0) << name;
    EXPECT_GT(columns.decoded, 0.8) << name;
    EXPECT_GT(rows.decoded, 0.999) << name;
    DecodeSettings alone;
    alone.usesNeighbours = false;
    DecodedPatterns const own = decode_patterns(set, capture.capture(set), alone);
    EXPECT_LE(errorsOf(own.column, own.sigmaColumn, capture.column, 2.5).decoded, columns.decoded) << name;
    EXPECT_NEAR(decoded.noise, 11.0, 0.6) << name;
  }
}

/// Every pixel's equations solved by singular values, in double, with what is clipped left out.
TEST(DecodePatterns, UnevenStepsExposuresAndClippingSolveTheEquations) {
  PatternSet set;
  set.projector = {640, 400};
  for (double const exposure : {0.5, 2.0}) {
    for (double const offset : {10.0, 75.0, 160.0, 230.0, 300.0}) {
      PatternImage image;
      image.role = PatternRole::Phase;
      image.period = 700.0;
      image.offset = offset;
      image.sign = -1;
      image.exposure = exposure;
      set.images.push_back(image);
    }
  }
  PatternCapture capture;
  capture.size = {90, 40};
  capture.mean = 240.0;
  capture.amplitude = 200.0;
  capture.albedo = [](int x, int) { return 0.3 + 0.02 * x; };
  std::vector<cv::Mat> const images = capture.capture(set);
  DecodedPatterns const decoded = decode_patterns(set, images);
  int clipped = 0;
  for (int y = 0; y < 40; y += 3) {
    for (int x = 0; x < 90; ++x) {
      std::vector<cv::Vec4d> rows;
      for (std::size_t i = 0; i < images.size(); ++i) {
        double const e = set.images[i].exposure / 2.0;
        double const o = set.images[i].offset * CV_PI / 180.0;
        double const value = images[i].at<uchar>(y, x);
        if (value < 255.0) {
          rows.emplace_back(e, e * std::cos(o), e * std::sin(o), value);
        }
      }
      clipped += rows.size() < images.size() ? 1 : 0;
      cv::Mat a(static_cast<int>(rows.size()), 3, CV_64F);
      cv::Mat b(a.rows, 1, CV_64F);
      for (int r = 0; r < a.rows; ++r) {
        for (int c = 0; c < 3; ++c) {
          a.at<double>(r, c) = rows[static_cast<std::size_t>(r)][c];
        }
        b.at<double>(r) = rows[static_cast<std::size_t>(r)][3];
      }
      cv::Mat solution;
      cv::solve(a, b, solution, cv::DECOMP_SVD);
      double const turns = std::atan2(solution.at<double>(1), solution.at<double>(2)) / (2 * CV_PI);
      EXPECT_NEAR(static_cast<double>(decoded.column(y, x)), 700.0 * (turns - std::floor(turns)), 2e-3);
      EXPECT_NEAR(static_cast<double>(decoded.modulation(y, x)),
                  std::hypot(solution.at<double>(1), solution.at<double>(2)), 2e-3);
    }
  }
  EXPECT_GT(clipped, 400);
  PatternErrors const e = errorsOf(decoded.column, decoded.sigmaColumn, capture.column, 50.0);
  EXPECT_NEAR(e.meanSigma / e.rms, 1.0, 0.1);
}

TEST(DecodePatterns, DeepImagesKeepTheirBits) {
  for (int const type : {CV_16UC1, CV_32FC1}) {
    PatternCapture capture;
    capture.type = type;
    capture.mean = 1800.0;
    capture.amplitude = 1400.0;
    capture.noise = 4.0;
    capture.white = 4095.0;
    PatternSet const set = builtIn("gray-phase");
    DecodeSettings settings;
    settings.whiteLevel = 4095.0;
    std::vector<cv::Mat> const images = capture.capture(set);
    DecodedPatterns const decoded = decode_patterns(set, images, settings);
    expectAtBound(errorsOf(decoded.column, decoded.sigmaColumn, capture.column, 1.0),
                  boundOf(set, PatternAxis::Column, capture), cv::typeToString(type));
  }
}

TEST(DecodePatterns, FiveStepsAndMoreAreFreeOfGammaAndMeasureIt) {
  for (int const steps : {5, 6, 9}) {
    PatternSet const set = builtIn("gray-phase", steps);
    PatternCapture capture;
    capture.gamma = 2.2;
    capture.blur = 0.01;
    capture.noise = 0.5;
    DecodedPatterns const decoded = decode_patterns(set, capture.capture(set));
    PatternErrors const e = errorsOf(decoded.column, decoded.sigmaColumn, capture.column, 1.0);
    EXPECT_EQ(e.wrong, 0.0);
    // Parts of the period of 8 pixels.
    double const bound = boundOf(set, PatternAxis::Column, capture);
    EXPECT_LT(std::sqrt(std::max(0.0, e.rms * e.rms - bound * bound)) / 8.0, 0.003) << steps;
    // Of ((1 + sin) / 2)^gamma it is (gamma - 1) / (gamma + 2).
    EXPECT_NEAR(decoded.fringes[0].secondHarmonic, 1.2 / 4.2, 0.01) << steps;
  }
}

/// Three steps of two periods, and bits whose stripes are as wide as the longer one.
PatternSet twoFringesAndBits() {
  PatternSet set;
  set.projector = {640, 400};
  for (double const period : {40.0, 30.0}) {
    for (int step = 0; step < 3; ++step) {
      PatternImage image;
      image.role = PatternRole::Phase;
      image.period = period;
      image.step = step;
      image.steps = 3;
      set.images.push_back(image);
    }
  }
  for (int bit = 4; bit >= 0; --bit) {
    for (bool const isInverse : {false, true}) {
      PatternImage image;
      image.role = PatternRole::Bit;
      image.bit = bit;
      image.cell = 40.0;
      image.isInverse = isInverse;
      set.images.push_back(image);
    }
  }
  return set;
}

/// Three steps take the second harmonic for phase: c2 / c1 = (gamma - 1) / (gamma + 2) radians.
TEST(DecodePatterns, PeriodsThatDisagreeTellWhatGammaDoesToThreeSteps) {
  PatternSet const set = twoFringesAndBits();
  PatternCapture capture;
  capture.gamma = 1.6;
  capture.noise = 0.5;
  std::vector<cv::Mat> const images = capture.capture(set);
  DecodeSettings settings;
  settings.correctsHarmonics = false;
  DecodedPatterns const raw = decode_patterns(set, images, settings);
  PatternErrors const before = errorsOf(raw.column, raw.sigmaColumn, capture.column, 8.0);
  DecodedPatterns const decoded = decode_patterns(set, images);
  PatternErrors const after = errorsOf(decoded.column, decoded.sigmaColumn, capture.column, 8.0);
  EXPECT_GT(before.rms, 0.4);
  EXPECT_EQ(after.wrong, 0.0);
  EXPECT_GT(after.decoded, 0.99);
  EXPECT_LT(after.rms, 0.08);
  for (FringeFigures const& fringe : decoded.fringes) {
    EXPECT_NEAR(fringe.corrected, 0.6 / 3.6 / (2 * CV_PI), 0.004);
  }
}

// With little noise a pixel's bits are certain right up to the border of its stripe, which ends where the
// wide fringe does: which one the pixel is on lies open, and its neighbours tell. A border that touches
// another surface somewhere is not lost as a whole.
TEST(DecodePatterns, BordersOfStripesAreKeptThatTouchAnotherSurface) {
  PatternCapture capture;
  capture.noise = 0.3;
  capture.type = CV_32FC1;
  constexpr int step = 70;
  capture.column = [](int x, int y) { return 20.3 + 1.37 * x + (y < step ? 0.0 : 57.0); };
  PatternSet const set = twoFringesAndBits();
  DecodedPatterns const decoded = decode_patterns(set, capture.capture(set));
  for (cv::Range const& rows : {cv::Range(0, step - 4), cv::Range(step + 4, capture.size.height)}) {
    PatternErrors const e = errorsOf(
        decoded.column.rowRange(rows), decoded.sigmaColumn.rowRange(rows),
        [&](int x, int y) { return capture.column(x, y + rows.start); }, 8.0);
    EXPECT_EQ(e.decoded, 1.0) << rows.start;
    EXPECT_EQ(e.wrong, 0.0) << rows.start;
  }
}

/// A pixel at the border of two surfaces sees light of both.
TEST(DecodePatterns, PixelsBetweenSurfacesAreLeftOut) {
  constexpr int fine = 4; // columns that a pixel sees
  auto const near = [](double x, int y) { return 20.3 + 1.37 * x + 0.2 * y; };
  auto const far = [](double x, int y) { return 57.6 + 1.21 * x + 0.1 * y; };
  auto const border = [](int y) { return 88.0 + 0.09 * y; };
  int mixed = 0;
  for (char const* const name : {"gray-phase", "xor4", "multi-frequency", "heterodyne"}) {
    PatternCapture capture;
    capture.size.width *= fine;
    capture.noise = 2.0; // a pixel has half of it
    auto const placeOf = [](int x) { return (x + 0.5) / fine - 0.5; };
    capture.column = [&](int x, int y) {
      double const place = placeOf(x);
      return place < border(y) ? near(place, y) : far(place, y);
    };
    PatternSet const set = builtIn(name, 0, {640, 400}, PatternAxes::Columns);
    std::vector<cv::Mat> images;
    for (cv::Mat const& image : capture.capture(set)) {
      images.emplace_back();
      cv::resize(image, images.back(), {image.cols / fine, image.rows}, 0, 0, cv::INTER_AREA);
    }
    DecodeSettings settings;
    for (bool const isOn : {false, true}) {
      settings.dropsEdges = isOn;
      DecodedPatterns const decoded = decode_patterns(set, images, settings);
      int between = 0;
      for (int y = 0; y < decoded.column.rows; ++y) {
        for (int x = 0; x < decoded.column.cols; ++x) {
          auto const seen = static_cast<double>(decoded.column(y, x));
          bool const isKnown = seen >= 0.0;
          bool const isOfOne = std::fabs(seen - near(x, y)) < 0.4 || std::fabs(seen - far(x, y)) < 0.4;
          between += isKnown && !isOfOne ? 1 : 0;
          EXPECT_TRUE(isKnown || !isOn || std::fabs(x - border(y)) < 4.0) << name << x << ", " << y;
        }
      }
      mixed += isOn ? 0 : between;
      EXPECT_EQ(isOn ? between : 0, 0) << name;
    }
  }
  EXPECT_GT(mixed, 40) << "the scene has some";
}

TEST(DecodePatterns, MaskSaysWhyAPixelIsMissing) {
  PatternCapture capture;
  capture.size = {240, 100};
  capture.albedo = [](int x, int y) {
    return x < 60                                   ? 0.01
           : x > 200                                ? 3.0
           : x > 120 && x < 124 && y > 50 && y < 54 ? 1.0
           : x > 110 && x < 134                     ? 0.0
                                                    : 1.0;
  };
  PatternSet const set = builtIn("gray-phase");
  DecodedPatterns const decoded = decode_patterns(set, capture.capture(set));
  auto const reason = [&](int x, int y) { return static_cast<PixelReason>(decoded.mask(y, x)); };
  EXPECT_EQ(reason(30, 20), PixelReason::Dark);
  EXPECT_EQ(reason(220, 20), PixelReason::Clipped);
  EXPECT_EQ(reason(122, 52), PixelReason::SmallPiece);
  EXPECT_EQ(reason(90, 20), PixelReason::Measured);
  for (cv::Point const& p : {cv::Point(30, 20), cv::Point(220, 20), cv::Point(122, 52)}) {
    EXPECT_EQ(decoded.column(p), -1.0F);
    EXPECT_TRUE(std::isnan(decoded.sigmaColumn(p)));
  }
}

} // namespace
} // namespace vorn::mv
