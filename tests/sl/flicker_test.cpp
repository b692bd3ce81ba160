// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/phase/flicker.hpp"

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

TEST(Flicker, IsFoundAndMadeUpFor) {
  Library::init();
  cv::Vec4d const brightness(1.04, 0.97, 1.0, 1.02);
  auto const images = fringes(brightness);
  cv::Mat_<uchar> const mask(images[0].size(), uchar{255});
  auto const factors = flickerCorrection(images, mask);
  // 1600 pixels with noise of one grey level in 100 tell the factors to some 5e-4; the flicker is 1e-2.
  constexpr double noise = 2e-3;
  for (int k = 0; k < 4; ++k) {
    EXPECT_NEAR(factors[static_cast<std::size_t>(k)] * brightness[k] / (factors[0] * brightness[0]), 1.0,
                noise);
  }
  cv::Mat_<float> phase;
  decode_phase_shift(images, phase, mask);
  correctFlicker(images, factors, phase);
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
  cv::Mat_<uchar> const mask(steady[0].size(), uchar{255});
  for (float factor : flickerCorrection(steady, mask)) {
    EXPECT_NEAR(factor, 1.0F, 1e-3F);
  }
  cv::Mat_<uchar> const nothing(steady[0].size(), uchar{0});
  for (float factor : flickerCorrection(fringes({1.1, 1, 1, 1}), nothing)) {
    EXPECT_EQ(factor, 1.0F);
  }
}

TEST(Flicker, CorrectionLeavesMaskedPixels) {
  auto const images = fringes({1.04, 0.97, 1.0, 1.02});
  cv::Mat_<float> phase(images[0].size(), -1.0F);
  correctFlicker(images, {0.96F, 1.03F, 1.0F, 0.98F}, phase);
  EXPECT_EQ(cv::countNonZero(phase != -1.0F), 0);
}

} // namespace
} // namespace vorn::mv::sl
