// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/phase/phase_blur.hpp"

#include <cmath>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "support/seed.hpp"

namespace vorn::mv::sl {
namespace {

/// RMS error of some pixels of a noisy ramp.
double errorIn(cv::Mat_<float> const& phase, cv::Rect const& part) {
  double sum = 0;
  for (int y = part.y; y < part.br().y; ++y) {
    for (int x = part.x; x < part.br().x; ++x) {
      double const error = std::remainder(phase(y, x) - (0.7 * x + 0.2 * y), 2 * CV_PI);
      sum += error * error;
    }
  }
  return std::sqrt(sum / part.area());
}

TEST(PhaseBlur, SmoothsTheBordersAsItDoesTheMiddle) {
  cv::RNG random(test::seed());
  cv::Mat_<float> noisy(120, 160);
  for (int y = 0; y < noisy.rows; ++y) {
    for (int x = 0; x < noisy.cols; ++x) {
      double const angle = std::fmod(0.7 * x + 0.2 * y + random.gaussian(0.1) + 20 * CV_PI, 2 * CV_PI);
      noisy(y, x) = static_cast<float>(angle);
    }
  }
  cv::Mat_<float> const magnitude(noisy.size(), 50.0F);
  cv::Mat_<uchar> mask(noisy.size(), uchar{255});
  mask(60, 80) = 0;
  cv::Mat_<float> smooth = noisy.clone();
  blurPhase(smooth, magnitude, mask, 1);
  // Nine pixels make noise a third; at the border six of them are in the image.
  EXPECT_LT(errorIn(smooth, {10, 10, 140, 100}), 0.4 * errorIn(noisy, {10, 10, 140, 100}));
  for (cv::Rect const& border :
       {cv::Rect(0, 1, 1, 118), cv::Rect(159, 1, 1, 118), cv::Rect(1, 0, 158, 1), cv::Rect(1, 119, 158, 1)}) {
    EXPECT_LT(errorIn(smooth, border), 0.7 * errorIn(noisy, border)) << border;
  }
  EXPECT_EQ(smooth(60, 80), noisy(60, 80));
}

// One line inside the image all nine pixels are there, those of the first row and column too.
TEST(PhaseBlur, TakesTheOutermostPixelsToo) {
  cv::RNG random(test::seed());
  cv::Size const size(160, 120);
  cv::Mat_<float> const magnitude(size, 50.0F);
  cv::Mat_<uchar> const mask(size, uchar{255});
  cv::Rect const middle(20, 20, 120, 80);
  cv::Rect const lines[] = {{1, 2, 1, 116}, {158, 2, 1, 116}, {2, 1, 156, 1}, {2, 118, 156, 1}};
  double inMiddle = 0;
  double inLines[4] = {};
  constexpr int draws = 40; // which leaves two per cent of chance in each
  for (int draw = 0; draw < draws; ++draw) {
    cv::Mat_<float> phase(size);
    for (int y = 0; y < phase.rows; ++y) {
      for (int x = 0; x < phase.cols; ++x) {
        double const angle = std::fmod(0.7 * x + 0.2 * y + random.gaussian(0.1) + 20 * CV_PI, 2 * CV_PI);
        phase(y, x) = static_cast<float>(angle);
      }
    }
    blurPhase(phase, magnitude, mask, 1);
    inMiddle += std::pow(errorIn(phase, middle), 2);
    for (int i = 0; i < 4; ++i) {
      inLines[i] += std::pow(errorIn(phase, lines[i]), 2);
    }
  }
  for (int i = 0; i < 4; ++i) {
    EXPECT_NEAR(std::sqrt(inLines[i] / inMiddle), 1, 0.1) << lines[i];
  }
}

} // namespace
} // namespace vorn::mv::sl
