// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Images of the scanner's own sequence that were exchanged, or are there twice, are told; images in order are
// not, whatever light, lamp and camera do to them.
#include <vorn/mv/scanner/scan.hpp>

#include <algorithm>
#include <cmath>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "scanner/findings/sequence_doubts.hpp"
#include "sim/target.hpp"
#include "sl/pattern_capture.hpp"
#include "support/scanner_rig.hpp"

namespace vorn::mv {
namespace {

using test::PatternCapture;

constexpr int columns = 640;

/// Texture, and a surface that stands before another one. Nearly the whole code is in view: what of it is not
/// cannot be in a wrong place.
PatternCapture scene() {
  PatternCapture capture;
  capture.size = {420, 120};
  capture.albedo = [](int x, int y) {
    return 0.6 + 0.3 * std::sin(0.11 * x) * std::cos(0.07 * y + 0.02 * x);
  };
  capture.column = [](int x, int y) {
    return 20.3 + 1.3 * x + 0.11 * y + (x > 230 && y > 50 ? 22.7 + 0.05 * x : 0.0);
  };
  return capture;
}

std::vector<cv::Mat> captured(PatternCapture const& capture) {
  return capture.capture(test::builtIn("xor4", 0, {columns, 400}, PatternAxes::Columns));
}

std::vector<PatternDoubt> doubtsOf(std::vector<cv::Mat> const& images) {
  return sequenceDoubts(sl::greyStack(images, 0.0), PatternAxis::Column, {columns, sl::columnCode});
}

bool names(std::vector<PatternDoubt> const& doubts, std::size_t one, std::size_t other) {
  return std::any_of(doubts.begin(), doubts.end(), [&](PatternDoubt const& doubt) {
    auto const has = [&](std::size_t image) {
      return std::find(doubt.images.begin(), doubt.images.end(), image) != doubt.images.end();
    };
    return doubt.images.size() == 2 && has(one) && has(other);
  });
}

TEST(ScanDoubts, AnyTwoExchangedImagesAreDoubted) {
  std::vector<cv::Mat> const images = captured(scene());
  ASSERT_EQ(images.size(), 12U);
  for (std::size_t one = 0; one < images.size(); ++one) {
    for (std::size_t other = one + 1; other < images.size(); ++other) {
      std::vector<cv::Mat> exchanged = images;
      std::swap(exchanged[one], exchanged[other]);
      EXPECT_FALSE(doubtsOf(exchanged).empty()) << one << ", " << other;
    }
  }
}

TEST(ScanDoubts, AnyImageThatIsThereTwiceIsNamedWithItsCopy) {
  std::vector<cv::Mat> const images = captured(scene());
  for (std::size_t one = 0; one < images.size(); ++one) {
    for (std::size_t other = 0; other < images.size(); ++other) {
      if (one != other) {
        std::vector<cv::Mat> copied = images;
        copied[one] = images[other];
        EXPECT_TRUE(names(doubtsOf(copied), one, other)) << one << ", " << other;
      }
    }
  }
}

/// There the noise is a third of a level, and most pixels that show the same are equal.
TEST(ScanDoubts, CopiesOfTheTopBitsAreNamedInDimLight) {
  PatternCapture dim = scene();
  dim.mean = 14.0;
  dim.amplitude = 8.0;
  dim.noise = 0.2;
  std::vector<cv::Mat> const images = captured(dim);
  ASSERT_TRUE(doubtsOf(images).empty());
  std::size_t const top = images.size() - 1;
  for (auto const& [one, other] : {std::pair(top, top - 1), std::pair(top - 1, top)}) {
    std::vector<cv::Mat> copied = images;
    copied[one] = images[other];
    EXPECT_TRUE(names(doubtsOf(copied), one, other)) << one << ", " << other;
  }
}

TEST(ScanDoubts, ACopyIsToldHoweverFarLevelsLieApart) {
  // Such stretched to 16 bits, and such at the upper end of 12.
  for (double const perGrey : {257.0, 16.0}) {
    std::vector<cv::Mat> images;
    for (cv::Mat const& image : captured(scene())) {
      image.convertTo(images.emplace_back(), CV_16U, perGrey);
    }
    images[8] = images[7].clone();
    std::vector<PatternDoubt> const doubts = doubtsOf(images);
    EXPECT_TRUE(names(doubts, 7, 8)) << perGrey;
    EXPECT_TRUE(std::any_of(doubts.begin(), doubts.end(), [](PatternDoubt const& doubt) {
      return doubt.text.find("are the same") != std::string::npos;
    })) << perGrey;
  }
}

/// Captured a second time, they have another noise.
TEST(ScanDoubts, APatternThatWasShownTwiceIsDoubted) {
  PatternSet const set = test::builtIn("xor4", 0, {columns, 400}, PatternAxes::Columns);
  std::vector<cv::Mat> const images = scene().capture(set);
  std::vector<cv::Mat> const again = scene().capture(set, 2);
  for (auto const& [one, other] : std::vector<std::pair<std::size_t, std::size_t>>{
           {0, 1}, {3, 2}, {1, 3}, {6, 7}, {7, 6}, {5, 6}, {4, 7}}) {
    std::vector<cv::Mat> twice = images;
    twice[one] = again[other];
    EXPECT_TRUE(names(doubtsOf(twice), one, other)) << one << ", " << other;
  }
}

TEST(ScanDoubts, RowsForColumnsAreDoubted) {
  PatternCapture capture = scene();
  capture.row = [](int x, int y) { return 10.0 + 0.8 * x + 0.3 * y; };
  PatternSet const rows = test::builtIn("xor4", 0, {columns, 400}, PatternAxes::Rows);
  std::vector<PatternDoubt> const doubts = doubtsOf(capture.capture(rows));
  ASSERT_FALSE(doubts.empty());
  EXPECT_NE(doubts[0].text.find("rows look like that"), std::string::npos) << doubts[0].text;
}

TEST(ScanDoubts, NothingIsSaidOfImagesInOrder) {
  PatternCapture dim = scene();
  dim.noise = 6.0;
  dim.mean = 30.0;
  dim.amplitude = 20.0;
  PatternCapture clean = scene();
  clean.noise = 0.0;             // bits that are the same everywhere in view are equal to the last level
  PatternCapture fine = scene(); // half of the code in view, and less
  fine.column = [](int x, int y) { return 30.2 + 0.33 * x + 0.05 * y; };
  PatternCapture fineAndClean = fine;
  fineAndClean.noise = 0.0;
  PatternCapture coarse = scene();
  coarse.column = [](int x, int y) { return 10.2 + 1.4 * x + 0.05 * y; };
  PatternCapture comb = scene();
  comb.column = [](int x, int) { return 20.3 + 0.5 * x + (x / 37 % 2 == 0 ? 0.0 : 40.3 + 7.1 * (x / 37)); };
  PatternCapture deep = scene();
  deep.type = CV_16UC1;
  int number = 0;
  std::vector<PatternCapture> captures = test::inHarshLight(scene());
  captures.insert(captures.end(), {scene(), dim, clean, fine, fineAndClean, coarse, comb, deep});
  for (PatternCapture const& capture : captures) {
    std::vector<PatternDoubt> const doubts = doubtsOf(captured(capture));
    EXPECT_TRUE(doubts.empty()) << number << ": " << doubts[0].text;
    ++number;
  }
  std::vector<cv::Mat> flicker = captured(scene());
  for (std::size_t i = 0; i < flicker.size(); ++i) {
    flicker[i].convertTo(flicker[i], -1, 1.0 + 0.08 * std::sin(2.1 * static_cast<double>(i)));
  }
  EXPECT_TRUE(doubtsOf(flicker).empty());
}

/// A lamp, an exposure or a black level that changed for one image, or a frame that was lost.
TEST(ScanDoubts, APhaseImageOfOtherLightThanTheOthersIsNamed) {
  struct Light {
    double gain;
    double offset;
  };
  PatternCapture dim = scene();
  dim.mean = 60.0;
  dim.amplitude = 40.0;
  dim.noise = 2.0;
  for (PatternCapture const& capture : {scene(), dim}) {
    std::vector<cv::Mat> const images = captured(capture);
    for (std::size_t image = 0; image < 4; ++image) {
      for (Light const& light : {Light{0.7, 0}, Light{0.6, 0}, Light{0.5, 0}, Light{0, 0}, Light{1.0, 20}}) {
        std::vector<cv::Mat> one = images;
        one[image] = cv::Mat();
        images[image].convertTo(one[image], -1, light.gain, light.offset);
        std::vector<PatternDoubt> const doubts = doubtsOf(one);
        ASSERT_EQ(doubts.size(), 1U) << image << ", " << light.gain << ", " << light.offset;
        EXPECT_EQ(doubts[0].images, std::vector<std::size_t>{image}) << light.gain << ", " << light.offset;
        EXPECT_EQ(doubts[0].fault, PatternFault::Level);
      }
      std::vector<cv::Mat> corrected = images;
      corrected[image] = cv::Mat(0.82 * images[image]);
      EXPECT_TRUE(doubtsOf(corrected).empty()) << image << ": " << doubtsOf(corrected)[0].text;
    }
  }
}

/// As calibrations show them to a scanner: dots on dark ground, askew, in little light, coarse.
TEST(ScanDoubts, NothingIsSaidOfTargetsInOrder) {
  sim::Rig const plain = sim::demoRig(3);
  sim::Rig dim = plain;
  dim.camera.sensor.exposure /= 4;
  sim::Rig noisy = plain;
  noisy.camera.sensor.fullWell = 3000;
  noisy.camera.sensor.readNoise = 20;
  std::vector<sim::Pose> const poses{sim::demoTargetPoses()[3],
                                     sim::Pose::fromDegrees({-5, 5, 570}, {4, -52, -7}),
                                     sim::Pose::fromDegrees({5, 5, 560}, {50, 8, 5})};
  sim::RenderOptions exact;
  exact.supersample = 1;
  for (sim::Rig const& rig : {plain, dim, noisy, sim::demoRigSampled(0.6, 2), sim::demoRigSampled(2, 4)}) {
    for (sim::Pose const& pose : poses) {
      sim::ProjectorView const view(rig.camera, rig.projector,
                                    sim::Scene({sim::targetObject(sim::demoTarget(), pose)}), exact);
      cv::Size const projector = rig.projector.device.resolution();
      for (auto const& [item, axis, coded] :
           {std::tuple(scanner::ScannerType::Horizontal, PatternAxis::Column,
                       sl::CodedAxis{projector.width, sl::columnCode}),
            std::tuple(scanner::ScannerType::Vertical, PatternAxis::Row,
                       sl::CodedAxis{projector.height, sl::rowCode})}) {
        std::vector<cv::Mat> const images = view.capture(test::patternsOf(rig, scanner::ScannerType(item)));
        std::vector<PatternDoubt> const doubts = sequenceDoubts(sl::greyStack(images, 0.0), axis, coded);
        EXPECT_TRUE(doubts.empty()) << projector << ": " << doubts[0].text;
      }
    }
  }
}

TEST(ScanDoubts, AScanHasThemOfEitherAxis) {
  sim::Rig rig = sim::demoRig(4);
  rig.camera.sensor.fullWell = 10000;
  for (scanner::ScannerType::Item const item :
       {scanner::ScannerType::Horizontal, scanner::ScannerType::Vertical}) {
    scanner::ScannerType const type(item);
    Sl3dScanner scanner = test::scannerOf(rig);
    scanner["ScannerType"] = type;
    std::vector<cv::Mat> images = test::captured(rig, sim::demoScene(), type);
    ScanResult const good = scan(scanner, images);
    EXPECT_TRUE(good.doubts.empty()) << good.doubts[0].text;
    std::swap(images[1], images[2]);
    ScanResult const bad = scan(scanner, images);
    ASSERT_FALSE(bad.doubts.empty());
    EXPECT_EQ(bad.doubts[0].axis,
              item == scanner::ScannerType::Horizontal ? PatternAxis::Column : PatternAxis::Row);
  }
}

} // namespace
} // namespace vorn::mv
