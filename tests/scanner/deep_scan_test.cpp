// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/// Scans and calibrations from images of other depths than 8 bits, and in colour.

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/scanner/calibrate_scanner.hpp>
#include <vorn/mv/scanner/scan.hpp>

#include "scanner/rendered_view.hpp"
#include "support/expect_error.hpp"
#include "support/scanner_rig.hpp"

namespace vorn::mv {
namespace {

using vorn::test::expectError;
using Type = scanner::ScannerType;

sim::Rig smallRig() {
  return sim::demoRig(4);
}

std::vector<cv::Mat> converted(std::vector<cv::Mat> const& images, int type, double scale) {
  std::vector<cv::Mat> result;
  for (cv::Mat const& image : images) {
    image.convertTo(result.emplace_back(), type, scale);
  }
  return result;
}

std::vector<cv::Mat> inColour(std::vector<cv::Mat> const& images) {
  std::vector<cv::Mat> result;
  for (cv::Mat const& image : images) {
    cv::merge(std::vector<cv::Mat>{image, image, image}, result.emplace_back());
  }
  return result;
}

/// What a sensor of the rig's makes of the patterns, grey levels of 255 that are not rounded.
std::vector<cv::Mat> exposed(sim::Rig const& rig) {
  return sim::ProjectorView(rig.camera, rig.projector, sim::demoScene())
      .expose(test::patternsOf(rig, Type(Type::Horizontal)));
}

/// Images of `bits` bits with normal noise of so many grey levels of 255.
std::vector<cv::Mat> digitized(std::vector<cv::Mat> const& grey, double noise, int bits) {
  cv::RNG random(7);
  double const perGrey = std::pow(2.0, bits - 8);
  std::vector<cv::Mat> result;
  for (cv::Mat const& image : grey) {
    cv::Mat noisy(image.size(), CV_32F);
    random.fill(noisy, cv::RNG::NORMAL, 0, noise);
    noisy += image;
    noisy.convertTo(result.emplace_back(), bits > 8 ? CV_16U : CV_8U, perGrey);
  }
  return result;
}

/// The largest difference of coordinates at pixels that both have.
double largestDifference(ScanResult const& a, ScanResult const& b) {
  return cv::norm(a.map, b.map, cv::NORM_INF, (a.mask == b.mask) & (a.map >= 0));
}

TEST(DeepScan, GivesWhatTheSameImagesIn8BitsGive) {
  std::vector<cv::Mat> const bytes = test::captured(smallRig(), sim::demoScene());
  for (int const blur : {0, 2}) {
    Sl3dScanner scanner = test::scannerOf(smallRig());
    scanner["PhaseBlurRadius"] = blur;
    ScanResult const expected = scan(scanner, bytes);
    EXPECT_EQ(expected.whiteLevel, 255);
    auto const expectSame = [&](std::vector<cv::Mat> const& images, double white, char const* what) {
      ScanSettings settings;
      settings.whiteLevel = white;
      ScanResult const result = scan(scanner, images, settings);
      // Means of whole numbers are whole numbers, which lie closer to each other in deeper images.
      constexpr int ofRounding = 40;
      EXPECT_LE(cv::countNonZero(result.mask != expected.mask), ofRounding) << what;
      constexpr double ofTables = 1e-4; // projector pixels: phases from a table or a polynomial
      EXPECT_LT(largestDifference(result, expected), ofTables) << what;
      EXPECT_EQ(result.whiteLevel, white) << what;
      // Noise and modulation count in the images' own levels.
      double const perGrey = white / 255;
      EXPECT_NEAR(cv::mean(result.modulation)[0], perGrey * cv::mean(expected.modulation)[0], 1e-4 * perGrey);
      EXPECT_LT(cv::norm(cv::Mat(result.cloud.texture()), cv::Mat(expected.cloud.texture()), cv::NORM_INF), 2)
          << what;
    };
    expectSame(converted(bytes, CV_16U, 257), 65535, "16 bits");
    expectSame(converted(bytes, CV_16U, 256), 65280, "8 bits in the upper half");
    expectSame(converted(bytes, CV_16U, 16), 255 * 16, "12 bits");
    expectSame(converted(bytes, CV_32F, 1.0 / 255), 1, "up to 1");
    expectSame(converted(bytes, CV_64F, 1), 255, "double precision");
    expectSame(inColour(bytes), 255, "colour");
    expectSame(inColour(converted(bytes, CV_16U, 257)), 65535, "deep colour");
  }
}

TEST(DeepScan, TwelveBitsDecodeWithTheirNoise) {
  sim::Rig rig = smallRig();
  rig.camera.sensor.exposure = 0.12; // dim: fringes of few grey levels
  std::vector<cv::Mat> const grey = exposed(rig);
  Sl3dScanner scanner = test::scannerOf(rig);
  scanner["MaxFillRadius"] = 0;
  ScanResult const exact = scan(scanner, converted(grey, CV_32F, 1.0));
  constexpr double noise = 0.05; // grey levels of 255; rounding to 12 bits has 0.018, to 8 bits 0.29
  auto const errorsOf = [&](ScanResult const& result, double& predicted) {
    double squares = 0;
    double variances = 0;
    int count = 0;
    for (int y = 0; y < exact.map.rows; ++y) {
      for (int x = 0; x < exact.map.cols; ++x) {
        double const error = static_cast<double>(result.map(y, x)) - exact.map(y, x);
        if (exact.map(y, x) >= 0 && result.map(y, x) >= 0 && std::abs(error) < 1) {
          squares += error * error;
          variances += std::pow(static_cast<double>(result.sigma(y, x)), 2);
          ++count;
        }
      }
    }
    EXPECT_GT(count, 10000);
    predicted = std::sqrt(variances / count);
    return std::sqrt(squares / count);
  };
  double predicted12 = 0;
  double predicted8 = 0;
  double const error12 = errorsOf(scan(scanner, digitized(grey, noise, 12)), predicted12);
  double const error8 = errorsOf(scan(scanner, digitized(grey, noise, 8)), predicted8);
  EXPECT_LT(error12, 0.25 * error8);
  EXPECT_NEAR(predicted12 / error12, 1.0, 0.08);
}

TEST(DeepScan, ClippedIsWhatReachesTheSensorsWhite) {
  sim::Rig rig = smallRig();
  rig.camera.sensor.exposure = 2;
  rig.camera.sensor.blackLevel = 0;
  std::vector<cv::Mat> images;
  for (cv::Mat const& image : digitized(exposed(rig), 0.2, 12)) {
    images.push_back(cv::min(image, 4000.0)); // full before the end of its range
  }
  Sl3dScanner scanner = test::scannerOf(rig);
  scanner["MaxGrayLevel"] = 200;
  scanner["MaxFillRadius"] = 0;
  auto const clippedWith = [&](double white) {
    ScanSettings settings;
    settings.whiteLevel = white;
    ScanResult const result = scan(scanner, images, settings);
    EXPECT_EQ(result.whiteLevel, white > 0 ? white : 4000);
    return result.counts.of(PixelReason::Clipped);
  };
  auto const expectedFor = [&](int white, bool countsBright) {
    std::size_t count = 0;
    for (int i = 0; i < images[0].rows * images[0].cols; ++i) {
      auto const at = [&](std::size_t image) { return images[image].ptr<ushort>()[i]; };
      bool const isFull = std::max({at(0), at(1), at(2), at(3)}) >= white;
      bool const isBright = at(0) + at(1) + at(2) + at(3) > 4 * std::lround(200.0 * white / 255);
      count += isFull || (countsBright && isBright) ? 1U : 0U;
    }
    return count;
  };
  std::size_t const expected = expectedFor(4000, true);
  ASSERT_GT(expected, expectedFor(4095, true) + 100);
  EXPECT_EQ(clippedWith(0), expected);
  EXPECT_EQ(clippedWith(4000), expected);
  EXPECT_EQ(clippedWith(4095), expectedFor(4095, true));
  std::vector<cv::Mat> colour;
  for (cv::Mat const& image : images) {
    cv::merge(std::vector<cv::Mat>{image / 2, image / 2, image}, colour.emplace_back());
  }
  EXPECT_EQ(scan(scanner, colour).counts.of(PixelReason::Clipped), expectedFor(4000, false))
      << "in one channel is in all, however dark the others";
}

TEST(DeepScan, WhatCannotBeReadIsRefused) {
  Sl3dScanner scanner = test::scannerOf(smallRig());
  std::vector<cv::Mat> const bytes = test::captured(smallRig(), sim::demoScene());
  std::vector<cv::Mat> const words = converted(bytes, CV_16U, 257);
  expectError([&] { scanner.decode(words); }, "Image 0 is not an 8-bit image of one channel");
  std::vector<cv::Mat> mixed = words;
  mixed[3] = bytes[3];
  expectError([&] { scan(scanner, mixed); },
              "Image 3 is CV_8UC1 of 320 x 240 pixels; the first one is CV_16UC1");
  expectError([&] { scan(scanner, converted(bytes, CV_16S, 1)); }, "Image 0 is CV_16SC1");
  ScanSettings settings;
  settings.whiteLevel = 70000;
  expectError([&] { scan(scanner, words, settings); }, "white level is 70000, which must be 0 to 65535");
  settings.whiteLevel = -1;
  expectError([&] { scan(scanner, words, settings); }, "whiteLevel is -1");
}

std::vector<sim::Pose> firstPoses(std::size_t count) {
  std::vector<sim::Pose> poses = sim::demoTargetPoses();
  poses.resize(std::min(count, poses.size()));
  return poses;
}

TEST(DeepScan, ScannersAreCalibratedFromAnyDepth) {
  sim::Rig const rig = test::halfRig();
  CalibrationSettings settings = test::halfRigSettings();
  TargetDescription target;
  target.pitch = 15;
  settings.target = target;
  std::vector<ScannerView> views;
  std::vector<ScannerView> deepViews;
  for (sim::Pose const& pose : firstPoses(4)) {
    views.push_back(test::renderedView(rig, pose, "view " + std::to_string(views.size())));
    ScannerView deep = views.back();
    deep.target = converted({deep.target}, CV_16U, 16)[0];
    deep.columns = converted(deep.columns, CV_16U, 16);
    deep.rows = inColour(converted(deep.rows, CV_32F, 1.0 / 255));
    deepViews.push_back(deep);
  }
  ScannerCalibration const expected = calibrateScanner(views, settings);
  ScannerCalibration const found = calibrateScanner(deepViews, settings);
  ASSERT_EQ(found.report.devices.size(), 2U);
  EXPECT_EQ(found.report.findings.size(), expected.report.findings.size());
  // The projector's points are the same; those of the camera lie within what its search leaves.
  EXPECT_NEAR(found.report.devices[0].rms, expected.report.devices[0].rms, 2e-3);
  EXPECT_NEAR(found.report.devices[1].rms, expected.report.devices[1].rms, 2e-3);
  double const shift = cv::norm(found.object.getTransform() - expected.object.getTransform());
  EXPECT_LT(shift, 0.05);
}

} // namespace
} // namespace vorn::mv
