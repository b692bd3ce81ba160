// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/plan_patterns.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/sl/decode_patterns.hpp>

#include "sl/pattern_capture.hpp"
#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

using test::PatternCapture;
using vorn::test::expectError;

PatternWish wish() {
  PatternWish result;
  result.projector = {640, 400};
  result.blur = 0.7;
  result.noise = 1.5;
  result.amplitude = 60.0;
  return result;
}

PatternCapture captureOf(PatternWish const& wish) {
  PatternCapture capture;
  capture.size = {300, 200};
  capture.showsPixels = true;
  capture.noise = wish.noise;
  capture.amplitude = wish.amplitude;
  capture.blur = wish.blur;
  return capture;
}

/// Phase and period of the fringes along columns at a pixel, by the definition of a Fourier coefficient.
struct Seen {
  double period;
  double turns;
};

std::vector<Seen> phasesAt(PatternSet const& set, std::vector<cv::Mat> const& images, int x, int y) {
  std::vector<Seen> all;
  for (std::size_t i = 0; i < images.size(); ++i) {
    PatternImage const& image = set.images[i];
    if (image.role != PatternRole::Phase || image.axis != PatternAxis::Column || image.step != 0) {
      continue;
    }
    double a = 0.0;
    double b = 0.0;
    for (int k = 0; k < image.steps; ++k) {
      double const value = images[i + static_cast<std::size_t>(k)].at<float>(y, x);
      a += value * std::sin(2 * CV_PI * k / image.steps);
      b += value * std::cos(2 * CV_PI * k / image.steps);
    }
    double const turns = std::atan2(b, a) / (2 * CV_PI);
    all.push_back({image.period, turns - std::floor(turns)});
  }
  return all;
}

/// The share of pixels whose coordinate, the best of a fine grid by all phases and their weights, belongs to
/// another fringe than theirs.
double wrongOrders(PatternSet const& set, PatternCapture const& capture, std::vector<cv::Mat> const& images) {
  double wrong = 0.0;
  for (int y = 0; y < capture.size.height; ++y) {
    for (int x = 0; x < capture.size.width; ++x) {
      std::vector<Seen> const seen = phasesAt(set, images, x, y);
      Seen const finest = *std::min_element(seen.begin(), seen.end(),
                                            [](Seen const& a, Seen const& b) { return a.period < b.period; });
      double best = std::numeric_limits<double>::infinity();
      double found = 0.0;
      double const first = finest.period * (finest.turns - 1.0);
      for (double c = first; c < set.projector.width + finest.period; c += finest.period) {
        double cost = 0.0;
        for (Seen const& one : seen) {
          cost += std::pow(std::remainder(c / one.period - one.turns, 1.0), 2) /
                  (1.0 + std::pow(finest.period / one.period, 2));
        }
        if (cost < best) {
          best = cost;
          found = c;
        }
      }
      bool const isOfImage = found >= 0.0 && found < set.projector.width;
      wrong += isOfImage && std::fabs(found - capture.column(x, y)) > 0.5 * finest.period ? 1.0 : 0.0;
    }
  }
  return wrong / capture.size.area();
}

TEST(Foretell, TheRateOfWrongOrdersIsWhatImagesGive) {
  for (char const* const name : {"multi-frequency", "heterodyne"}) {
    PatternWish given = wish();
    given.axes = PatternAxes::Columns;
    given.noise = std::string(name) == "heterodyne" ? 10.0 : 16.0;
    given.isRounded = false;
    PatternSetOptions options;
    options.axes = given.axes;
    PatternSet const set = PatternSet::builtIn(name, given.projector, options);
    PatternCapture capture = captureOf(given);
    capture.type = CV_32FC1;
    capture.white = 1e9;
    capture.column = [](int x, int y) { return 640.0 / 300.0 * (x + (0.5 + y) / 200.0) - 0.5; };
    double const foretold = foretell(set, given).orderErrors;
    double const measured = wrongOrders(set, capture, capture.capture(set));
    ASSERT_GT(measured * capture.size.area(), 300.0) << name << ": too few to tell";
    EXPECT_NEAR(foretold / measured, 1.0, 0.2) << name;
  }
}

/// Phases as noise makes them of amplitudes, and the best order of all that are beside one another; those
/// before and behind the image are no errors.
double drawnWrongOrders(std::vector<double> const& periods, std::vector<double> const& amplitudes,
                        double length) {
  std::mt19937_64 random(3);
  std::normal_distribution<double> normal;
  std::uniform_real_distribution<double> place(0.0, length);
  double const fine = periods[0];
  int const orders = static_cast<int>(std::ceil(length / fine));
  constexpr int draws = 300000;
  int wrong = 0;
  std::vector<double> turns(periods.size());
  for (int draw = 0; draw < draws; ++draw) {
    double const at = place(random);
    for (std::size_t i = 0; i < periods.size(); ++i) {
      double const across = normal(random);
      turns[i] = at / periods[i] + std::atan2(across, amplitudes[i] + normal(random)) / (2 * CV_PI);
    }
    double least = std::numeric_limits<double>::infinity();
    int best = 0;
    double const first = turns[0] - std::floor(turns[0]);
    for (int k = -1; k <= orders; ++k) {
      double cost = 0.0;
      for (std::size_t i = 1; i < periods.size(); ++i) {
        double const rest = 2 * CV_PI * std::remainder(fine * (first + k) / periods[i] - turns[i], 1.0);
        double const ofFinest = fine / (periods[i] * amplitudes[0]);
        cost += rest * rest / (1.0 / (amplitudes[i] * amplitudes[i]) + ofFinest * ofFinest);
      }
      best = cost < least ? k : best;
      least = std::min(cost, least);
    }
    bool const isOfImage = best >= 0 && best < orders;
    wrong += isOfImage && std::fabs(fine * (first + best) - at) > 0.5 * fine ? 1 : 0;
  }
  return static_cast<double>(wrong) / draws;
}

/// Rates at which the sines of errors are no longer the errors.
TEST(Foretell, TheRateOfWrongOrdersIsThatOfDrawnPhases) {
  struct Case {
    char const* set;
    double noise;
  };
  for (Case const& one : {Case{"multi-frequency", 12.2}, Case{"heterodyne", 6.9}}) {
    PatternWish given = wish();
    given.axes = PatternAxes::Columns;
    given.noise = one.noise;
    given.isRounded = false;
    PatternSetOptions options;
    options.axes = given.axes;
    options.steps = 3;
    PatternSet const set = PatternSet::builtIn(one.set, given.projector, options);
    std::vector<double> periods;
    for (PatternImage const& image : set.images) {
      if (image.step == 0) {
        periods.push_back(image.period);
      }
    }
    std::sort(periods.begin(), periods.end());
    std::vector<double> amplitudes; // in the standard deviations of either part of what the steps add up to
    for (double const p : periods) {
      double const squares = std::sin(CV_PI / p) * p / CV_PI;
      double const shown = given.amplitude * std::exp(-2.0 * std::pow(CV_PI * given.blur / p, 2)) * squares;
      amplitudes.push_back(shown / given.noise * std::sqrt(1.5));
    }
    double const drawn = drawnWrongOrders(periods, amplitudes, given.projector.width);
    ASSERT_GT(drawn, 8e-4) << one.set << ": too few to tell";
    EXPECT_NEAR(foretell(set, given).orderErrors / drawn, 1.0, 0.12) << one.set;
  }
}

/// Bits decided as they are; stripes of half a fringe with the phase say which fringe it is.
TEST(Foretell, TheRateOfWrongBitsIsWhatImagesGive) {
  for (bool const hasInverses : {true, false}) {
    PatternWish given = wish();
    given.axes = PatternAxes::Columns;
    given.noise = hasInverses ? 30.0 : 18.0;
    given.isRounded = false;
    PatternSetOptions options;
    options.axes = given.axes;
    options.period = 16.0;
    options.hasInverses = hasInverses;
    PatternSet const set = PatternSet::builtIn("gray-phase", given.projector, options);
    PatternCapture capture = captureOf(given);
    capture.type = CV_32FC1;
    capture.white = 1e9;
    std::vector<cv::Mat> const images = capture.capture(set);
    double wrong = 0.0;
    for (int y = 0; y < capture.size.height; ++y) {
      for (int x = 0; x < capture.size.width; ++x) {
        unsigned word = 0;
        for (std::size_t i = 0; i < images.size(); ++i) {
          if (set.images[i].role == PatternRole::Bit && !set.images[i].isInverse) {
            double const value = images[i].at<float>(y, x);
            double const other =
                hasInverses
                    ? images[i + 1].at<float>(y, x)
                    : 0.5 * (static_cast<double>(images[0].at<float>(y, x)) + images[1].at<float>(y, x));
            word |= (value > other ? 1U : 0U) << static_cast<unsigned>(set.images[i].bit);
          }
        }
        unsigned stripe = word;
        for (unsigned shifted = word >> 1U; shifted != 0; shifted >>= 1U) {
          stripe ^= shifted;
        }
        double const middle = 8.0 * stripe + 3.5;
        double const truth = capture.column(x, y); // the phase is as good as that
        wrong += std::fabs(16.0 * std::round((middle - truth) / 16.0)) > 1.0 ? 1.0 : 0.0;
      }
    }
    ASSERT_GT(wrong, 300.0) << "too few to tell";
    EXPECT_NEAR(foretell(set, given).orderErrors / (wrong / capture.size.area()), 1.0, 0.2) << hasInverses;
  }
}

/// From all pixels decoded to hardly any. Where few have an order by themselves, the others' depend on which
/// of them are neighbours.
TEST(Foretell, TheShareOfDecodedPixelsIsWhatImagesGive) {
  for (char const* const name : {"xor4", "gray", "gray-phase", "multi-frequency", "heterodyne"}) {
    double least = 1.0;
    for (double const noise : {2.0, 8.0, 12.0, 30.0}) {
      PatternWish given = wish();
      given.noise = noise;
      PatternSetOptions options;
      options.axes = PatternAxes::Columns;
      PatternSet const set = PatternSet::builtIn(name, given.projector, options);
      PatternCapture capture = captureOf(given);
      capture.size = {290, 100};
      capture.column = [](int x, int y) { return 12.0 + 0.8 * x + (y < 50 ? 0.0 : 350.0) + 0.1 * y; };
      std::vector<cv::Mat> const images = capture.capture(set);
      auto const shareOf = [&](DecodeSettings const& settings) {
        cv::Mat const mask = decode_patterns(set, images, settings).mask;
        return 1.0 - cv::countNonZero(mask) / static_cast<double>(mask.total());
      };
      DecodeSettings alone;
      alone.usesNeighbours = false;
      alone.minSegmentSize = 0;
      double const own = shareOf(alone);
      PatternPlan const plan = foretell(set, given);
      EXPECT_NEAR(plan.decodedAlone, own, 0.04) << name << ", noise " << noise;
      if (own > 0.5) {
        EXPECT_NEAR(plan.decoded, shareOf({}), 0.06) << name << ", noise " << noise;
      }
      least = std::min(least, own);
    }
    if (std::string(name) != "gray") { // bits alone take their noise for granted
      EXPECT_LT(least, 0.2) << name << ": nothing was put to the test";
    }
  }
}

TEST(PlanPatterns, ThePlannedSigmaIsWhatDecodingReaches) {
  PatternWish given = wish();
  given.sigma = 0.025;
  std::vector<PatternPlan> const plans = planPatterns(given);
  ASSERT_GE(plans.size(), 3U);
  for (PatternPlan const& plan : plans) {
    PatternCapture const capture = captureOf(given);
    DecodedPatterns const decoded = decode_patterns(plan.set, capture.capture(plan.set));
    test::PatternErrors const e = test::errorsOf(decoded.column, decoded.sigmaColumn, capture.column, 1.0);
    test::PatternErrors const f = test::errorsOf(decoded.row, decoded.sigmaRow, capture.row, 1.0);
    EXPECT_GT(std::min(e.decoded, f.decoded), 0.999) << plan.set.name;
    EXPECT_EQ(e.wrong + f.wrong, 0.0) << plan.set.name;
    EXPECT_NEAR(std::max(e.rms, f.rms) / plan.sigma, 1.0, 0.05) << plan.set.name;
    EXPECT_LE(plan.sigma, given.sigma);
    EXPECT_LE(plan.orderErrors, given.orderErrors);
    EXPECT_DOUBLE_EQ(plan.time, 0.05 * static_cast<double>(plan.set.images.size()));
    EXPECT_GE(plan.set.images.size(), plans.front().set.images.size()) << "the fewest come first";
    PatternSet const again = PatternSet::builtIn(plan.set.name, given.projector, plan.options);
    EXPECT_EQ(again.images.size(), plan.set.images.size());
  }
}

TEST(PlanPatterns, MoreNoiseAndBlurTakeMoreImagesAndLongerPeriods) {
  PatternWish given = wish();
  given.images = 40;
  PatternPlan const sharp = planPatterns(given).front();
  EXPECT_LE(sharp.set.images.size(), 40U);
  given.blur = 4.0;
  PatternPlan const blurred = planPatterns(given).front();
  EXPECT_GT(blurred.sigma, sharp.sigma);
  EXPECT_GT(blurred.periods.front(), sharp.periods.front());
  given.images = 0;
  given.sigma = blurred.sigma;
  std::size_t const few = planPatterns(given).front().set.images.size();
  given.noise *= 2.0;
  EXPECT_GT(planPatterns(given).front().set.images.size(), few);
}

TEST(PlanPatterns, WhatCannotBeIsRefusedWithTheNearest) {
  PatternWish given = wish();
  expectError([&] { planPatterns(given); }, "neither sigma nor images");
  given.images = 8;
  expectError([&] { planPatterns(given); }, "nearest comes ");
  given.noise = -1.0;
  expectError([&] { planPatterns(given); }, "noise is -1");
  given = wish();
  given.orderErrors = 1.0;
  expectError([&] { planPatterns(given); }, "orderErrors is 1");
}

} // namespace
} // namespace vorn::mv
