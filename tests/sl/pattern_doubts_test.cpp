// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/pattern_doubt.hpp>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/core/observer.hpp>
#include <vorn/mv/sl/decode_patterns.hpp>

#include "sl/pattern_capture.hpp"

namespace vorn::mv {
namespace {

using test::PatternCapture;

PatternSet setOf(std::string const& name, int steps = 0) {
  return test::builtIn(name, steps, {640, 400}, PatternAxes::Columns);
}

/// Texture, and a surface that stands before another one.
PatternCapture scene() {
  PatternCapture capture;
  capture.size = {180, 120};
  capture.albedo = [](int x, int y) {
    return 0.6 + 0.3 * std::sin(0.11 * x) * std::cos(0.07 * y + 0.02 * x);
  };
  capture.column = [](int x, int y) {
    return 20.3 + 1.07 * x + 0.21 * y + (x > 100 && y > 50 ? 130.0 + 0.1 * x : 0.0);
  };
  return capture;
}

std::string textOf(DecodedPatterns const& decoded) {
  std::string text;
  for (PatternDoubt const& doubt : decoded.doubts) {
    text += doubt.text + "\n";
  }
  return text;
}

bool isDoubted(DecodedPatterns const& decoded, PatternFault fault, std::vector<std::size_t> const& images) {
  return std::any_of(decoded.doubts.begin(), decoded.doubts.end(), [&](PatternDoubt const& doubt) {
    return doubt.fault == fault && std::all_of(images.begin(), images.end(), [&](std::size_t image) {
             return std::find(doubt.images.begin(), doubt.images.end(), image) != doubt.images.end();
           });
  });
}

std::size_t imageOf(PatternSet const& set, int bit, bool isInverse) {
  auto const found = std::find_if(set.images.begin(), set.images.end(), [&](PatternImage const& image) {
    return image.role == PatternRole::Bit && image.bit == bit && image.isInverse == isInverse;
  });
  return static_cast<std::size_t>(found - set.images.begin());
}

std::size_t stepOf(PatternSet const& set, std::size_t fringe, int step) {
  std::size_t seen = 0;
  double period = 0.0;
  for (std::size_t i = 0; i < set.images.size(); ++i) {
    PatternImage const& image = set.images[i];
    seen += image.role == PatternRole::Phase && image.period != period ? 1 : 0;
    period = image.role == PatternRole::Phase ? image.period : period;
    if (seen == fringe + 1 && image.role == PatternRole::Phase && image.step == step) {
      return i;
    }
  }
  return set.images.size();
}

/// What is told of images of which two are exchanged.
DecodedPatterns exchanged(PatternSet const& set, std::size_t one, std::size_t other,
                          PatternCapture const& capture = scene()) {
  std::vector<cv::Mat> images = capture.capture(set);
  std::swap(images[one], images[other]);
  return decode_patterns(set, images);
}

TEST(PatternDoubts, TwoStepsOfAFringeAreNamed) {
  for (char const* const name : {"xor4", "gray-phase", "multi-frequency", "heterodyne"}) {
    for (int const steps : {4, 9}) {
      if (std::string(name) == "xor4" && steps != 4) {
        continue;
      }
      PatternSet const set = setOf(name, std::string(name) == "xor4" ? 0 : steps);
      std::size_t const one = stepOf(set, 0, 1);
      std::size_t const other = stepOf(set, 0, 2);
      DecodedPatterns const decoded = exchanged(set, one, other);
      EXPECT_TRUE(isDoubted(decoded, PatternFault::Steps, {one, other})) << name << steps << textOf(decoded);
      if (steps > 5) { // four and five steps may as well have two others exchanged and run the other way
        EXPECT_EQ(decoded.doubts[0].images.size(), 2U) << name << steps << textOf(decoded);
      }
    }
  }
}

/// With three steps, or the opposite ones of four, the exchanged ones are a fringe that runs the other way.
TEST(PatternDoubts, WhatLooksLikeAMirroredFringeIsToldByBitsOrOtherFringes) {
  for (char const* const name : {"xor4", "gray-phase", "multi-frequency", "heterodyne"}) {
    for (int const steps : {3, 4}) {
      if (std::string(name) == "xor4" && steps != 4) {
        continue;
      }
      PatternSet const set = setOf(name, std::string(name) == "xor4" ? 0 : steps);
      for (int const first : {0, 1}) {
        int const second = steps == 3 ? 2 : first + 2;
        DecodedPatterns const decoded = exchanged(set, stepOf(set, 0, first), stepOf(set, 0, second));
        EXPECT_TRUE(isDoubted(decoded, PatternFault::Mirrored, {stepOf(set, 0, first)}))
            << name << steps << textOf(decoded);
      }
      std::vector<cv::Mat> images = scene().capture(set);
      auto const begin = images.begin() + static_cast<std::ptrdiff_t>(stepOf(set, 0, 0));
      std::rotate(begin, begin + 1, begin + steps);
      DecodedPatterns const turned = decode_patterns(set, images);
      EXPECT_TRUE(isDoubted(turned, PatternFault::Shifted, {stepOf(set, 0, 0)}))
          << name << steps << textOf(turned);
    }
  }
}

/// Bits with two fringes: each of them is held against the stripes by itself.
TEST(PatternDoubts, EveryFringeBesideBitsIsHeldAgainstThem) {
  PatternSet set = setOf("gray-phase", 3);
  std::size_t const steps = 3;
  for (std::size_t i = 0; i < steps; ++i) {
    PatternImage image = set.images[stepOf(set, 0, static_cast<int>(i))];
    image.period *= 3.5;
    set.images.push_back(image);
  }
  std::vector<cv::Mat> const images = scene().capture(set);
  EXPECT_TRUE(decode_patterns(set, images).doubts.empty()) << textOf(decode_patterns(set, images));
  for (std::size_t const fringe : {0U, 1U}) {
    auto const at = [&](int step) { return stepOf(set, fringe, step); };
    DecodedPatterns const mirrored = exchanged(set, at(0), at(2));
    EXPECT_TRUE(isDoubted(mirrored, PatternFault::Mirrored, {at(0)})) << fringe << textOf(mirrored);
    std::vector<cv::Mat> turned = images;
    auto const begin = turned.begin() + static_cast<std::ptrdiff_t>(at(0));
    std::rotate(begin, begin + 1, begin + steps);
    DecodedPatterns const shifted = decode_patterns(set, turned);
    EXPECT_TRUE(isDoubted(shifted, PatternFault::Shifted, {at(0)})) << fringe << textOf(shifted);
  }
}

TEST(PatternDoubts, StepsOfTwoFringesAreToldByTheirMeans) {
  PatternSet const set = setOf("multi-frequency", 3);
  DecodedPatterns const decoded = exchanged(set, stepOf(set, 0, 1), stepOf(set, 1, 1));
  EXPECT_TRUE(isDoubted(decoded, PatternFault::Level, {stepOf(set, 0, 1), stepOf(set, 1, 1)}))
      << textOf(decoded);
}

TEST(PatternDoubts, BitsAreNamed) {
  for (char const* const name : {"xor4", "gray", "gray-phase"}) {
    PatternSet const set = setOf(name);
    for (auto const& [one, other] : std::vector<std::pair<int, int>>{{0, 1}, {3, 4}, {5, 6}}) {
      std::vector<cv::Mat> images = scene().capture(set);
      std::vector<std::size_t> named{imageOf(set, one, false), imageOf(set, other, false)};
      std::swap(images[named[0]], images[named[1]]);
      if (imageOf(set, one, true) < set.images.size()) {
        std::swap(images[imageOf(set, one, true)], images[imageOf(set, other, true)]);
      }
      DecodedPatterns const decoded = decode_patterns(set, images);
      EXPECT_TRUE(isDoubted(decoded, PatternFault::Stripes, named)) << name << one << textOf(decoded);
    }
  }
  PatternSet const set = setOf("gray-phase");
  std::size_t const bit = imageOf(set, 4, false);
  std::size_t const inverse = imageOf(set, 4, true);
  DecodedPatterns const flipped = exchanged(set, bit, inverse);
  EXPECT_TRUE(isDoubted(flipped, PatternFault::Stripes, {bit, inverse})) << textOf(flipped);
  DecodedPatterns const torn = exchanged(set, bit, imageOf(set, 2, false));
  EXPECT_TRUE(isDoubted(torn, PatternFault::Level, {bit, imageOf(set, 2, false)})) << textOf(torn);
  DecodedPatterns const mixed = exchanged(set, bit, stepOf(set, 0, 1));
  EXPECT_TRUE(isDoubted(mixed, PatternFault::Steps, {bit, stepOf(set, 0, 1)})) << textOf(mixed);
}

TEST(PatternDoubts, AnImageOfAnotherScanIsNamed) {
  PatternSet const set = setOf("gray-phase", 5);
  PatternCapture other = scene();
  other.column = [](int x, int y) { return 60.3 + 1.1 * x - 0.11 * y; };
  std::vector<cv::Mat> const strange = other.capture(set);
  for (std::size_t const one : {stepOf(set, 0, 2), imageOf(set, 3, true)}) {
    std::vector<cv::Mat> images = scene().capture(set);
    images[one] = strange[one];
    DecodedPatterns const decoded = decode_patterns(set, images);
    PatternFault const fault = one == stepOf(set, 0, 2) ? PatternFault::Steps : PatternFault::Level;
    EXPECT_TRUE(isDoubted(decoded, fault, {one})) << textOf(decoded);
  }
}

/// Whatever light, lamp and camera do to images that are in order.
TEST(PatternDoubts, NothingIsSaidOfImagesInOrder) {
  for (char const* const name : {"xor4", "gray", "gray-phase", "multi-frequency", "heterodyne"}) {
    for (int const steps : {3, 4, 9}) {
      bool const isFixed = std::string(name) == "xor4" || std::string(name) == "gray";
      if ((isFixed && steps != 4) || (steps == 9 && std::string(name) != "gray-phase")) {
        continue;
      }
      PatternSet const set = setOf(name, isFixed ? 0 : steps);
      PatternCapture dim = scene();
      dim.noise = 6.0;
      dim.mean = 30.0;
      dim.amplitude = 15.0;
      std::vector<PatternCapture> captures = test::inHarshLight(scene());
      captures.insert(captures.end(), {scene(), dim});
      for (PatternCapture const& capture : captures) {
        DecodedPatterns const decoded = decode_patterns(set, capture.capture(set));
        EXPECT_TRUE(decoded.doubts.empty()) << name << steps << textOf(decoded);
      }
      std::vector<cv::Mat> flicker = scene().capture(set);
      for (std::size_t i = 0; i < flicker.size(); ++i) {
        flicker[i].convertTo(flicker[i], -1, 1.0 + 0.08 * std::sin(2.1 * static_cast<double>(i)));
      }
      DecodedPatterns const decoded = decode_patterns(set, flicker);
      EXPECT_TRUE(decoded.doubts.empty()) << name << steps << textOf(decoded);
    }
  }
}

/// Where a camera pixel covers several projector pixels, the next one rightly sees another stripe than the
/// next. What is exchanged among the coarser bits shows all the same.
TEST(PatternDoubts, CoarseCamerasDoNotMakeStripesDoubted) {
  for (bool const hasInverses : {true, false}) {
    PatternSetOptions options;
    options.axes = PatternAxes::Columns;
    options.hasInverses = hasInverses;
    PatternSet const set = PatternSet::builtIn("gray", {1024, 400}, options);
    for (double const apart : {0.7, 1.3, 1.8, 2.2, 2.5, 3.0, 3.4}) {
      for (double const tilt : {0.0, 0.4}) {
        PatternCapture capture;
        capture.size = {260, 40};
        capture.column = [=](int x, int y) {
          return 5.0 + apart * x * (1.0 + tilt * x / 520.0) + (tilt > 0.0 ? 0.15 * y : 0.0);
        };
        double const widest = apart * (1.0 + tilt);
        capture.blur = std::sqrt(0.16 + widest * widest / 12.0);
        std::vector<cv::Mat> images = capture.capture(set);
        DecodedPatterns const decoded = decode_patterns(set, images);
        EXPECT_TRUE(decoded.doubts.empty()) << hasInverses << apart << ' ' << tilt << textOf(decoded);
        std::size_t const one = imageOf(set, 5, false);
        std::size_t const other = imageOf(set, 6, false);
        std::swap(images[one], images[other]);
        if (hasInverses) {
          std::swap(images[imageOf(set, 5, true)], images[imageOf(set, 6, true)]);
        }
        DecodedPatterns const exchanged = decode_patterns(set, images);
        EXPECT_TRUE(isDoubted(exchanged, PatternFault::Stripes, {one, other}))
            << hasInverses << apart << ' ' << tilt << textOf(exchanged);
      }
    }
  }
}

/// Which of many are to be exchanged cannot be told, and whoever waits for it can stop it.
TEST(PatternDoubts, ImagesInAnyOrderAreDoubtedWithoutNamesAndAnObserverIsAskedMeanwhile) {
  struct Stopping : Observer {
    int asked = 0;
    int most;
    explicit Stopping(int most_) : most(most_) {}
    bool onProgress(std::string_view stage, double) override {
      asked += stage == "checking" ? 1 : 0;
      return asked < most;
    }
  };
  PatternSet const set = setOf("gray-phase", 16);
  std::vector<cv::Mat> images = scene().capture(set);
  std::swap(images[3], images[9]);
  constexpr int ofPair = 60; // of one group with 16 images
  Stopping pair(1 << 20);
  DecodedPatterns const swapped = decode_patterns(set, images, {}, &pair);
  EXPECT_TRUE(isDoubted(swapped, PatternFault::Steps, {3, 9})) << textOf(swapped);
  EXPECT_GT(pair.asked, ofPair);
  Stopping stopping(ofPair);
  EXPECT_THROW(decode_patterns(set, images, {}, &stopping), Cancelled);
  PatternDecoder decoder(set);
  for (cv::Mat const& image : images) {
    decoder.add(image);
  }
  Stopping stoppingAtEnd(ofPair);
  EXPECT_THROW(decoder.finish(&stoppingAtEnd), Cancelled);
  EXPECT_EQ(textOf(decoder.finish()), textOf(swapped));
  std::shuffle(images.begin(), images.end(), std::mt19937(3));
  DecodedPatterns const shuffled = decode_patterns(set, images);
  EXPECT_GT(shuffled.doubts.size(), 6U) << textOf(shuffled);
  for (PatternDoubt const& doubt : shuffled.doubts) {
    EXPECT_EQ(doubt.text.find("without"), std::string::npos) << doubt.text;
    bool const isOfLevelOrSteps = doubt.fault == PatternFault::Level || doubt.fault == PatternFault::Steps;
    EXPECT_TRUE(!isOfLevelOrSteps || doubt.text.find("exchanged") == std::string::npos) << doubt.text;
  }
}

TEST(PatternDoubts, ImagesOneByOneAreDoubtedAlike) {
  PatternSet const set = setOf("gray-phase");
  std::vector<cv::Mat> images = scene().capture(set);
  std::swap(images[0], images[1]);
  PatternDecoder decoder(set);
  for (cv::Mat const& image : images) {
    decoder.add(image);
  }
  EXPECT_EQ(textOf(decoder.finish()), textOf(decode_patterns(set, images)));
}

} // namespace
} // namespace vorn::mv
