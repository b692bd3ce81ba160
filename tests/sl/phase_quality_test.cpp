// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/phase_quality.hpp>

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>

#include <gtest/gtest.h>

namespace vorn::mv {
namespace {

/// The rule step by step, as oracle for the vectorised one.
float literalQuality(cv::Mat_<float> const& phase, int y, int x) {
  double const pi = 3.141592653589793;
  float const p = phase(y, x);
  auto const excess = [&](float neighbour) {
    float const d = std::fabs(p - neighbour);
    return std::min(static_cast<float>(static_cast<double>(d) - 6.283185307179586), d);
  };
  float const m = std::max(std::max(excess(phase(y, x - 1)), excess(phase(y, x + 1))),
                           std::max(excess(phase(y - 1, x)), excess(phase(y + 1, x))));
  if (m == 0.0F) {
    return 0.9998999834F;
  }
  return static_cast<double>(m) > pi ? 0.0F : static_cast<float>(1.0 - m * 0.15915494309189535);
}

TEST(PhaseQuality, IsTheLiteralRuleBitForBit) {
  auto const twoPi = static_cast<float>(2 * CV_PI);
  auto const threePi = static_cast<float>(3 * CV_PI);
  cv::Size const size(1333, 90);
  cv::Mat_<float> phase(size);
  cv::randu(phase, 0.0F, twoPi);
  // Values whose jumps are 2π or 3π or a rounding away from them, rejected pixels, and absolute phases.
  float const corners[] = {0.0F,    twoPi, std::nextafter(twoPi, 0.0F),   std::nextafter(twoPi, 9.0F),
                           threePi, -1.0F, std::nextafter(threePi, 0.0F), std::nextafter(threePi, 99.0F),
                           1e9F,    50.0F};
  for (int i = 0; i < 90000; ++i) {
    phase(cv::theRNG().uniform(0, size.height), cv::theRNG().uniform(0, size.width)) =
        corners[cv::theRNG().uniform(0, 10)];
  }
  cv::Mat_<uchar> mask(size);
  cv::randu(mask, 0, 4);
  cv::Mat_<float> quality(size, 77.0F);
  calc_quality(phase, quality, mask);
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      bool const isBorder = y == 0 || x == 0 || y == size.height - 1 || x == size.width - 1;
      float expected = isBorder ? 77.0F : 0.0F;
      if (!isBorder && mask(y, x) != 0) {
        expected = literalQuality(phase, y, x);
      }
      ASSERT_EQ(quality(y, x), expected) << y << " " << x;
    }
  }
}

TEST(PhaseQuality, FollowsEveryFloatAroundThreePi) {
  cv::Mat_<float> phase(3, 5000, 0.0F);
  float jump = 9.4236F;
  for (int x = 1; x < phase.cols; x += 2) {
    phase(1, x) = jump;
    jump = std::nextafter(jump, 99.0F);
  }
  ASSERT_GT(jump, 9.425F);
  cv::Mat_<float> quality;
  calc_quality(phase, quality);
  for (int x = 1; x < phase.cols - 1; ++x) {
    ASSERT_EQ(quality(1, x), literalQuality(phase, 1, x));
  }
}

TEST(PhaseQuality, OfItsOwnInputAndOfTinyMaps) {
  cv::Mat_<float> phase(20, 30);
  cv::randu(phase, 0.0F, 6.0F);
  cv::Mat_<float> expected = phase.clone();
  calc_quality(phase.clone(), expected);
  calc_quality(phase, phase);
  EXPECT_EQ(cv::norm(phase, expected, cv::NORM_INF), 0);
  for (cv::Size const size : {cv::Size(0, 0), cv::Size(1, 1), cv::Size(2, 9), cv::Size(9, 2)}) {
    cv::Mat_<float> quality;
    calc_quality(cv::Mat_<float>(size, 1.0F), quality);
    EXPECT_EQ(quality.size(), size);
  }
}

} // namespace
} // namespace vorn::mv
