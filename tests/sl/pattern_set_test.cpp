// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/pattern_set.hpp>

#include <cmath>
#include <functional>
#include <set>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/sl/patterns.hpp>

#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

using test::expectError;

PatternSet grayPhase(cv::Size size = {100, 30}) {
  PatternSetOptions options;
  options.axes = PatternAxes::Columns;
  return PatternSet::builtIn("gray-phase", size, options);
}

TEST(PatternSet, Xor4IsTheSequenceOfTheScanner) {
  for (cv::Size const size : {cv::Size(101, 67), cv::Size(1920, 9), cv::Size(12, 1080)}) {
    std::vector<cv::Mat> expected;
    std::vector<cv::Mat> rows;
    generate_ps4_patterns(expected, rows, size);
    expected.insert(expected.end(), rows.begin(), rows.end());
    std::vector<cv::Mat> const images = PatternSet::builtIn("xor4", size).generate();
    ASSERT_EQ(images.size(), expected.size());
    for (std::size_t i = 0; i < images.size(); ++i) {
      EXPECT_EQ(cv::norm(images[i], expected[i], cv::NORM_INF), 0) << "image " << i;
    }
  }
}

TEST(PatternSet, BitsAreThoseOfGrayCodesAndInversesTheRest) {
  cv::Size const size(300, 11);
  PatternSet const set = PatternSet::builtIn("gray", size);
  std::vector<cv::Mat> const images = set.generate();
  for (std::size_t i = 0; i < images.size(); ++i) {
    PatternImage const& image = set.images[i];
    cv::Mat expected = generate_gray_pattern(size, 1, image.bit, image.axis == PatternAxis::Column);
    if (image.isInverse) {
      expected = 255 - expected;
    }
    EXPECT_EQ(cv::norm(images[i], expected, cv::NORM_INF), 0) << image.describe();
  }
}

/// The phase of the projected fringes themselves, by the sums over equal steps.
TEST(PatternSet, FringesHaveThePhasesOfTheirPlaces) {
  PatternSetOptions options;
  options.steps = 5;
  for (char const* const name : {"gray-phase", "multi-frequency", "heterodyne"}) {
    PatternSet const set = PatternSet::builtIn(name, {640, 400}, options);
    std::vector<cv::Mat> const images = set.generate();
    for (std::size_t i = 0; i < images.size(); ++i) {
      if (set.images[i].role != PatternRole::Phase || set.images[i].step != 0) {
        continue;
      }
      PatternImage const& image = set.images[i];
      bool const isColumn = image.axis == PatternAxis::Column;
      for (int c = 0; c < (isColumn ? 640 : 400); c += 7) {
        double sine = 0.0;
        double cosine = 0.0;
        for (int k = 0; k < 5; ++k) {
          double const value =
              images[i + static_cast<std::size_t>(k)].at<uchar>(isColumn ? 3 : c, isColumn ? c : 3);
          sine += value * std::cos(0.4 * CV_PI * k);
          cosine += value * std::sin(0.4 * CV_PI * k);
        }
        // Rounding to grey levels alone turns the phase by some thousandths.
        double const turned = std::atan2(sine, cosine) - 2 * CV_PI * c / image.period;
        EXPECT_LT(std::fabs(std::remainder(turned, 2 * CV_PI)), 0.01) << image.describe() << " at " << c;
      }
    }
  }
}

/// Whatever a set is made of, the images together must tell any two places apart.
TEST(PatternSet, EveryPlaceOfABuiltInSetLooksDifferent) {
  for (std::string const& name : PatternSet::builtInNames()) {
    for (bool const hasInverses : {true, false}) {
      PatternSetOptions options;
      options.hasInverses = hasInverses;
      cv::Size const size(1366, 768);
      std::vector<cv::Mat> const images = PatternSet::builtIn(name, size, options).generate();
      std::set<std::vector<uchar>> columns;
      for (int x = 0; x < size.width; ++x) {
        std::vector<uchar> seen;
        for (cv::Mat const& image : images) {
          seen.push_back(image.at<uchar>(5, x));
        }
        columns.insert(seen);
      }
      EXPECT_EQ(columns.size(), 1366U) << name;
    }
  }
}

TEST(PatternSet, AGammaTableIsAppliedToEveryImage) {
  std::vector<std::uint8_t> table(256);
  for (std::size_t v = 0; v < table.size(); ++v) {
    table[v] = static_cast<std::uint8_t>(255 - v / 2);
  }
  PatternSet const set = grayPhase();
  std::vector<cv::Mat> const plain = set.generate();
  std::vector<cv::Mat> const shown = set.generate(table);
  for (std::size_t i = 0; i < plain.size(); ++i) {
    for (int x = 0; x < plain[i].cols; ++x) {
      ASSERT_EQ(shown[i].at<uchar>(2, x), 255 - plain[i].at<uchar>(2, x) / 2);
    }
  }
  table.pop_back();
  expectError([&] { set.generate(table); }, "255 entries");
}

TEST(PatternSet, JsonBringsBackEveryImage) {
  PatternSet set = grayPhase();
  for (std::size_t i = 0; i < set.images.size(); ++i) {
    set.images[i].file = "p" + std::to_string(i) + ".png";
    set.images[i].shift = set.images[i].role == PatternRole::Bit ? 0.5 : 0.0;
    set.images[i].offset = set.images[i].role == PatternRole::Phase ? 22.5 : 0.0;
    set.images[i].sign = set.images[i].role == PatternRole::Phase ? -1 : 1;
  }
  nlohmann::json json;
  set.write(json);
  PatternSet back;
  back.read(json);
  ASSERT_EQ(back.images.size(), set.images.size());
  std::vector<cv::Mat> const expected = set.generate();
  std::vector<cv::Mat> const images = back.generate();
  for (std::size_t i = 0; i < images.size(); ++i) {
    EXPECT_EQ(back.images[i].file, set.images[i].file);
    EXPECT_EQ(back.images[i].describe(), set.images[i].describe());
    EXPECT_EQ(cv::norm(images[i], expected[i], cv::NORM_INF), 0);
  }
}

TEST(PatternSet, AListOfFilesStandsForStepsAndBits) {
  PatternSet set;
  set.read(nlohmann::json::parse(R"({"projector": [64, 8], "images": [
    {"role": "phase", "axis": "column", "period": 16, "offset": [-120, 0, 120], "files": ["a", "b", "c"]},
    {"role": "phase", "axis": "row", "period": 66.66666666666667, "files": ["d", "e", "f", "g"]},
    {"role": "gray", "axis": "column", "cell": 16, "inverse": "each", "files": ["h", "i", "j", "k"]}]})"));
  ASSERT_EQ(set.images.size(), 11U);
  EXPECT_EQ(set.images[2].describe(), "step 0 of 1 at 120 degrees of period 16 along columns");
  EXPECT_EQ(set.images[6].describe(), "step 3 of 4 of period 66.6667 along rows");
  EXPECT_EQ(set.images[7].describe(), "bit 1 along columns");
  EXPECT_EQ(set.images[8].describe(), "inverse of bit 1 along columns");
  EXPECT_EQ(set.images[9].describe(), "bit 0 along columns");
  EXPECT_EQ(set.images[10].file, "k");
}

TEST(PatternSet, JsonRefusalsNameTheMember) {
  struct Case {
    char const* json;
    char const* message;
  };
  std::string const head = R"({"projector": [64, 8], "images": [)";
  for (Case const& c : {
           Case{R"({"role": "phase", "axis": "column", "perod": 64, "steps": 3}]})",
                "did you mean \"period\""},
           Case{R"({"role": "phase", "axis": "colunm", "period": 64}]})", "images[0].axis"},
           Case{R"({"role": "white"}, {"role": "graycode"}]})", "images[1].role"},
           Case{R"({"role": "white", "bit": 2}]})", "images[0].bit"},
           Case{R"({"role": "gray", "axis": "row", "inverse": "each", "files": ["a"]}]})", "pairs"},
           Case{R"({"role": "phase", "axis": "row", "period": 64, "files": "a*.png"}]})", "images[0].files"},
           Case{R"({"role": "phase", "axis": "row", "period": 64, "files": ["a", "b"], "offset": [1]}]})",
                "images[0].offset"},
           Case{R"({"role": "phase", "axis": "row", "period": 64, "step": 0.5}]})", "whole number"},
       }) {
    PatternSet set = grayPhase();
    expectError([&] { set.read(nlohmann::json::parse(head + c.json)); }, c.message);
    EXPECT_EQ(set.images.size(), grayPhase().images.size());
  }
  PatternSet set;
  expectError([&] { set.read(nlohmann::json::parse(R"({"projector": [64, 8], "picture": []})")); },
              "picture");
}

TEST(PatternSet, WhatCannotBeDecodedIsRefusedByName) {
  using Change = std::function<void(PatternSet&)>;
  struct Case {
    char const* set;
    Change change;
    char const* message;
  };
  auto const drop = [](std::size_t i) {
    return [i](PatternSet& set) { set.images.erase(set.images.begin() + static_cast<std::ptrdiff_t>(i)); };
  };
  auto const repeat = [](double exposure, bool atFront) {
    return [=](PatternSet& set) {
      std::vector<PatternImage> more = set.images;
      for (PatternImage& image : more) {
        image.exposure = exposure;
      }
      set.images.insert(atFront ? set.images.begin() : set.images.end(), more.begin(), more.end());
    };
  };
  auto const onlyFringe = [](double period) {
    return [period](PatternSet& set) {
      set.images.resize(4);
      for (PatternImage& image : set.images) {
        image.period = period;
      }
    };
  };
  for (Case const& c : {
           Case{"gray-phase", drop(1), "lacks step 1 of 4"},
           Case{"gray-phase", drop(5), "lack the inverse of bit 4"},
           Case{"gray", drop(2), "lack bit"},
           Case{"gray-phase", [](PatternSet& s) { s.images[2].step = 1; }, "is there twice: image 1"},
           Case{"gray-phase", [](PatternSet& s) { s.images[2].step = 4; },
                "step 4 and must be one from 0 to 3"},
           Case{"gray-phase", [](PatternSet& s) { s.images[0].period = 1.5; }, "period 1.5"},
           Case{"gray-phase", [](PatternSet& s) { s.images[3].exposure = -2; }, "the exposure -2"},
           Case{"gray-phase", [](PatternSet& s) { s.images[6].cell = 3; }, "another code, cell or shift"},
           Case{"gray-phase", [](PatternSet& s) { s.projector.width = 200; }, "tell 32 stripes apart"},
           Case{"gray-phase", [](PatternSet& s) { s.projector.height = 0; }, "100 x 0"},
           Case{"gray-phase", repeat(2.0, true), "exposures must rise"},
           Case{"gray-phase", repeat(1.0, false), "is there twice"},
           Case{"gray-phase", [](PatternSet& s) { s.images[4].exposure = 3; }, "is missing at exposure"},
           Case{"multi-frequency",
                [](PatternSet& s) { s.images.erase(s.images.begin(), s.images.begin() + 4); },
                "repeat after"},
           Case{"heterodyne", [](PatternSet& s) { s.images.resize(4); }, "repeat after"},
           Case{"multi-frequency", onlyFringe(100.0), "has the period 100 over 100 pixels"},
           Case{"multi-frequency", onlyFringe(101.9), "has the period 101.9 over 100 pixels"},
           Case{"gray-phase",
                [](PatternSet& s) {
                  s.images.resize(2);
                  s.images[0].steps = s.images[1].steps = 1;
                  s.images[0].step = s.images[1].step = 0;
                  s.images[1].offset = 90;
                },
                "do not determine a phase"},
           Case{"gray-phase", [](PatternSet& s) { s.images.clear(); }, "neither fringes nor bits"},
           Case{"gray-phase", [](PatternSet& s) { s.images[0].file = "a"; }, "either all images have a file"},
       }) {
    PatternSetOptions options;
    options.axes = PatternAxes::Columns;
    PatternSet set = PatternSet::builtIn(c.set, {100, 30}, options);
    c.change(set);
    expectError([&] { set.validate(); }, c.message);
  }
  PatternSetOptions columns;
  columns.axes = PatternAxes::Columns;
  PatternSet longer = PatternSet::builtIn("multi-frequency", {100, 30}, columns);
  onlyFringe(102.0)(longer);
  EXPECT_NO_THROW(longer.validate());
  PatternSet twice = grayPhase();
  repeat(2.0, false)(twice);
  EXPECT_NO_THROW(twice.validate());
}

TEST(PatternSet, UnknownNamesAndOptionsAreRefused) {
  expectError([] { PatternSet::builtIn("grey-phase", {64, 64}); }, "did you mean \"gray-phase\"");
  PatternSetOptions options;
  options.steps = 2;
  expectError([&] { PatternSet::builtIn("gray-phase", {64, 64}, options); }, "\"steps\"");
  options.steps = 5;
  expectError([&] { PatternSet::builtIn("xor4", {64, 64}, options); }, "xor4");
  options.period = -3;
  expectError([&] { PatternSet::builtIn("gray-phase", {64, 64}, options); }, "\"period\"");
  expectError([] { PatternSet::builtIn("gray", {0, 64}); }, "0 x 64");
}

} // namespace
} // namespace vorn::mv
