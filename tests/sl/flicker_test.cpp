// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/phase/flicker.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/core/library.hpp>
#include <vorn/mv/sl/phase_decoding.hpp>

#include "support/seed.hpp"

namespace vorn::mv::sl {
namespace {

double phaseAt(int x) {
  return 0.31 * x + 0.2;
}

/// Fringes of mean 90 and amplitude 60 with noise of one grey level, each image brighter by its own factor.
std::vector<cv::Mat> fringes(cv::Vec4d const& brightness) {
  cv::RNG random(vorn::test::seed());
  std::vector<cv::Mat> images;
  for (int k = 0; k < 4; ++k) {
    cv::Mat_<uchar> image(64, 200);
    for (int y = 0; y < image.rows; ++y) {
      for (int x = 0; x < image.cols; ++x) {
        double const level = 90 + 60 * std::sin(phaseAt(x) + k * CV_PI / 2);
        image(y, x) = cv::saturate_cast<uchar>(brightness[k] * level + random.gaussian(1));
      }
    }
    images.push_back(image);
  }
  return images;
}

constexpr int brightest = 200;

void correct(std::vector<cv::Mat> const& images, std::array<float, 4> const& factors,
             cv::Mat_<float>& phase) {
  for (int y = 0; y < phase.rows; ++y) {
    correctFlicker<uchar>({images[0].ptr(y), images[1].ptr(y), images[2].ptr(y), images[3].ptr(y)}, factors,
                          phase.cols, phase[y]);
  }
}

TEST(Flicker, IsFoundAndMadeUpFor) {
  Library::init();
  cv::Vec4d const brightness(1.04, 0.97, 1.0, 1.02);
  auto const images = fringes(brightness);
  auto const factors = flickerCorrection(images, brightest);
  // 1600 pixels with noise of one grey level in 100 tell the factors to some 5e-4; the flicker is 1e-2.
  constexpr double noise = 2e-3;
  for (int k = 0; k < 4; ++k) {
    EXPECT_NEAR(factors[static_cast<std::size_t>(k)] * brightness[k] / (factors[0] * brightness[0]), 1.0,
                noise);
  }
  cv::Mat_<float> phase;
  decode_phase_shift(images, phase);
  correct(images, factors, phase);
  for (int x = 0; x < phase.cols; ++x) {
    // The mean over a column is free of noise but for its eighth; the flicker would shift it by up to 0.05.
    double sum = 0;
    for (int y = 0; y < phase.rows; ++y) {
      sum += std::remainder(phase(y, x) - phaseAt(x), 2 * CV_PI);
      EXPECT_GE(phase(y, x), 0.0F);
      EXPECT_LT(phase(y, x), static_cast<float>(2 * CV_PI));
    }
    EXPECT_NEAR(sum / phase.rows, 0.0, 0.01) << x;
  }
}

TEST(Flicker, NoneIsFoundWhereThereIsNoneOrNothingToSee) {
  auto const steady = fringes({1, 1, 1, 1});
  for (float factor : flickerCorrection(steady, brightest)) {
    EXPECT_NEAR(factor, 1.0F, 1e-3F);
  }
  constexpr int darkerThanAll = 20;
  for (float factor : flickerCorrection(fringes({1.1, 1, 1, 1}), darkerThanAll)) {
    EXPECT_EQ(factor, 1.0F);
  }
}

TEST(Flicker, WhatIsTooStrongForALampIsLeftAlone) {
  // A hand before the lamp in one image, not an unsteady lamp.
  for (float factor : flickerCorrection(fringes({1.0, 0.6, 1.0, 1.0}), brightest)) {
    EXPECT_EQ(factor, 1.0F);
  }
}

TEST(Flicker, TurnsThePhaseUpwardsAndDownwardsThroughTheWrap) {
  // Pixels just on either side of phase 0, turned by factors that move it either way.
  for (std::array<float, 4> const& factors :
       {std::array<float, 4>{1.05F, 1, 0.95F, 1}, std::array<float, 4>{0.95F, 1, 1.05F, 1}}) {
    for (int const offset : {-2, 2}) {
      std::array<uchar, 4> const v{static_cast<uchar>(100 + offset), 180, static_cast<uchar>(100 - offset),
                                   20};
      std::array<float, 4> exact{};
      std::transform(v.begin(), v.end(), factors.begin(), exact.begin(),
                     [](uchar level, float factor) { return static_cast<float>(level) * factor; });
      double const expected = std::atan2(exact[0] - exact[2], exact[1] - exact[3]);
      float phase = std::atan2(static_cast<float>(2 * offset), 160.0F);
      phase = phase < 0 ? phase + static_cast<float>(2 * CV_PI) : phase;
      correctFlicker<uchar>({&v[0], &v[1], &v[2], &v[3]}, factors, 1, &phase);
      EXPECT_GE(phase, 0.0F);
      EXPECT_LT(phase, static_cast<float>(2 * CV_PI));
      EXPECT_NEAR(std::remainder(phase - expected, 2 * CV_PI), 0.0, 1e-4);
    }
  }
}

} // namespace
} // namespace vorn::mv::sl
