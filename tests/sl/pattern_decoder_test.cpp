// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/decode_patterns.hpp>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "sl/pattern_capture.hpp"
#include "support/expect_error.hpp"
#include "support/watching.hpp"

namespace vorn::mv {
namespace {

using test::builtIn;
using test::PatternCapture;
using vorn::test::expectError;

TEST(PatternDecoder, ImagesOneByOneGiveTheSameBitsWithAnyNumberOfThreads) {
  int const threads = cv::getNumThreads();
  for (std::string const name : {"xor4", "gray", "gray-phase", "multi-frequency"}) {
    PatternSetOptions options;
    options.hasInverses = name != "gray";
    PatternSet set = PatternSet::builtIn(name, {640, 400}, options);
    if (name == "gray") {
      // White and black at the end: bits must wait for them.
      std::rotate(set.images.begin(), set.images.begin() + 2, set.images.end());
    }
    PatternCapture capture;
    capture.size = {131, 97};
    capture.noise = 8.0;
    std::vector<cv::Mat> const images = capture.capture(set);
    cv::setNumThreads(1);
    DecodedPatterns const expected = decode_patterns(set, images);
    PatternDecoder decoder(set);
    for (int const number : {2, 5}) {
      cv::setNumThreads(number);
      cv::Mat buffer;
      for (cv::Mat const& image : images) {
        image.copyTo(buffer); // as a camera that gives the same memory again
        decoder.add(buffer);
        buffer.setTo(77);
      }
      DecodedPatterns const decoded = decoder.finish();
      for (auto const& [a, b] : {std::pair<cv::Mat, cv::Mat>(decoded.column, expected.column),
                                 {decoded.row, expected.row},
                                 {decoded.mask, expected.mask},
                                 {decoded.modulation, expected.modulation}}) {
        EXPECT_EQ(cv::norm(a, b, cv::NORM_INF), 0.0) << name;
      }
      cv::patchNaNs(decoded.sigmaColumn, -1);
      cv::Mat sigma = expected.sigmaColumn.clone();
      cv::patchNaNs(sigma, -1);
      EXPECT_EQ(cv::norm(decoded.sigmaColumn, sigma, cv::NORM_INF), 0.0) << name;
    }
  }
  cv::setNumThreads(threads);
}

TEST(PatternDecoder, StopsLeaveNothingBehind) {
  PatternSet const set = builtIn("multi-frequency", 3, {128, 64});
  PatternCapture capture;
  capture.size = {60, 200};
  capture.column = [](int x, int) { return 10.0 + x; };
  capture.row = [](int, int y) { return 0.25 * y; };
  std::vector<cv::Mat> const images = capture.capture(set);
  DecodedPatterns const expected = decode_patterns(set, images);
  DecodedPatterns decoded;
  EXPECT_GT(vorn::test::stopEverywhere(
                [&](Observer& observer) { decoded = decode_patterns(set, images, {}, &observer); }, [] {}),
            4);
  EXPECT_EQ(cv::norm(decoded.column, expected.column, cv::NORM_INF), 0.0);
  PatternDecoder decoder(set);
  decoder.add(images[0]);
  vorn::test::Watching observer(1);
  EXPECT_THROW(decoder.add(images[1], &observer), Cancelled);
  EXPECT_EQ(decoder.count(), 0U);
  for (cv::Mat const& image : images) {
    decoder.add(image);
  }
  EXPECT_EQ(cv::norm(decoder.finish().row, expected.row, cv::NORM_INF), 0.0);
}

TEST(PatternDecoder, RefusesWhatDoesNotBelong) {
  PatternSet const set = builtIn("gray-phase", 4, {64, 64});
  PatternCapture capture;
  capture.size = {32, 24};
  std::vector<cv::Mat> images = capture.capture(set);
  PatternDecoder decoder(set);
  expectError([&] { decoder.finish(); }, "next is Image 0");
  decoder.add(images[0]);
  expectError([&] { decoder.add(cv::Mat(24, 31, CV_8UC1)); }, "31 x 24");
  expectError([&] { decoder.add(cv::Mat(24, 32, CV_8UC3)); }, "8UC3");
  EXPECT_EQ(decoder.count(), 1U);
  images.pop_back();
  expectError([&] { decode_patterns(set, images); }, std::to_string(set.images.size()));
  images.emplace_back(24, 32, CV_16UC1);
  expectError([&] { decode_patterns(set, images); }, "16UC1");
  DecodeSettings settings;
  settings.noise = -1;
  expectError([&] { PatternDecoder with(set, settings); }, "\"noise\"");
  expectError([] { PatternDecoder with{PatternSet()}; }, "0 x 0");
}

} // namespace
} // namespace vorn::mv
