// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/imaging/white_level.hpp>

#include <limits>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/core/exception.hpp>

namespace vorn::mv {
namespace {

/// A ramp from 0 to `most` with some texture, of `type`.
cv::Mat ramp(double most, int type, double step = 1) {
  cv::Mat_<double> image(64, 256);
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      double const value = most * x / 255.0 * (1.0 - 0.003 * y);
      image(y, x) = std::floor(value / step) * step;
    }
  }
  cv::Mat result;
  image.convertTo(result, type);
  return result;
}

double whiteOf(cv::Mat const& image) {
  return findWhiteLevel({cv::Mat::zeros(image.size(), image.type()), image});
}

TEST(WhiteLevel, IsTheEndOfTheRangeThatValuesUse) {
  EXPECT_EQ(findWhiteLevel({}), 0);
  EXPECT_THROW(findWhiteLevel({ramp(10, CV_16S)}), Exception);
  EXPECT_THROW(findWhiteLevel({ramp(10, CV_16U), ramp(10, CV_8U)}), Exception);
  EXPECT_EQ(whiteOf(ramp(10, CV_8U)), 255) << "8 bits are 8 bits, however dark";
  EXPECT_EQ(whiteOf(ramp(0, CV_16U)), 65535);
  EXPECT_EQ(whiteOf(ramp(200, CV_16U)), 255);
  EXPECT_EQ(whiteOf(ramp(900, CV_16U)), 1023);
  EXPECT_EQ(whiteOf(ramp(1024, CV_16U)), 4095);
  EXPECT_EQ(whiteOf(ramp(4094, CV_16U)), 4095);
  EXPECT_EQ(whiteOf(ramp(9000, CV_16U)), 16383);
  EXPECT_EQ(whiteOf(ramp(16384, CV_16U)), 65535);
  EXPECT_EQ(whiteOf(ramp(0.7, CV_32F)), 1);
  EXPECT_EQ(whiteOf(ramp(120.5, CV_32F)), 255);
  EXPECT_EQ(whiteOf(ramp(3000.25, CV_64F)), 4095);
  EXPECT_EQ(whiteOf(ramp(1e6, CV_32F)), 1e6);
}

TEST(WhiteLevel, IsTheGreatestMultipleOfValuesInTheUpperBits) {
  EXPECT_EQ(whiteOf(ramp(50000, CV_16U, 16)), 65520) << "12 bits";
  EXPECT_EQ(whiteOf(ramp(40000, CV_16U, 64)), 65472) << "10 bits";
  EXPECT_EQ(whiteOf(ramp(3000, CV_16U, 4)), 4092) << "10 bits in the upper ones of 12";
  EXPECT_EQ(whiteOf(ramp(60000, CV_16U, 4)), 65532) << "14 bits";
}

TEST(WhiteLevel, AFewPixelsAboveTheRangeSayNothing) {
  cv::Mat words;
  cv::resize(ramp(4000, CV_16U, 4), words, {1024, 512}, 0, 0, cv::INTER_NEAREST);
  cv::Mat hot = words.clone();
  hot.at<std::uint16_t>(7, 9) = 65535;
  hot.at<std::uint16_t>(300, 700) = 40001;
  EXPECT_EQ(whiteOf(hot), 4092) << "their lower bits are theirs too";
  hot.colRange(100, 110).setTo(20000);
  EXPECT_EQ(whiteOf(hot), 65535) << "a bright thing";
  cv::Mat reals;
  words.convertTo(reals, CV_32F, 1.0 / 4000.0);
  reals.at<float>(3, 4) = 1.001F;
  EXPECT_EQ(whiteOf(reals), 1);
  reals.at<float>(5, 6) = 7.5F;
  EXPECT_EQ(whiteOf(reals), 1);
  reals.colRange(0, 50) *= 1.09;
  EXPECT_EQ(whiteOf(reals), 1) << "a filter that overshoots";
}

TEST(WhiteLevel, IsWherePixelsPileUp) {
  cv::Mat const full = ramp(5000, CV_16U);
  auto const clippedAt = [&](double level) {
    cv::Mat image;
    cv::min(full, cv::Scalar::all(level), image);
    return image;
  };
  EXPECT_EQ(whiteOf(clippedAt(4000)), 4000) << "full before the end of 12 bits";
  EXPECT_EQ(whiteOf(clippedAt(3000)), 4095) << "far from the end: a bright surface, not a full sensor";
  EXPECT_EQ(whiteOf(ramp(4000, CV_16U)), 4095) << "nothing piles up";
  cv::Mat real;
  clippedAt(4000).convertTo(real, CV_32F);
  real.at<float>(0, 0) = std::numeric_limits<float>::quiet_NaN();
  real.at<float>(1, 0) = std::numeric_limits<float>::infinity();
  EXPECT_EQ(whiteOf(real), 4000);
  cv::Mat colour;
  cv::merge(std::vector<cv::Mat>{full / 2, clippedAt(4000), full / 3}, colour);
  EXPECT_EQ(whiteOf(colour), 4000) << "of any channel";
}

} // namespace
} // namespace vorn::mv
