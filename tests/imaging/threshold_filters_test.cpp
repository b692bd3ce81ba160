// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/imaging/threshold_filters.hpp>

#include <algorithm>
#include <vector>

#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

#include <vorn/mv/imaging/image_filters.hpp>

#include "imaging/filter_images.hpp"

namespace {

using namespace vorn::mv;
using vorn::test::noise;
using vorn::test::same;

/// All grey levels in one row.
cv::Mat greyLevels() {
  cv::Mat levels(1, 256, CV_8U);
  for (int i = 0; i < 256; ++i) {
    levels.at<uchar>(i) = static_cast<uchar>(i);
  }
  return levels;
}

TEST(ThresholdFilters, GlobalThresholdsOfEveryGreyLevel) {
  auto const result = [](char const* text, int level) {
    return int(vorn::parseFilter(text, imageFilters())->apply(greyLevels()).at<uchar>(level));
  };
  for (int level = 0; level < 256; ++level) {
    bool const above = level > 100;
    EXPECT_EQ(result("BinaryThreshold:Threshold=100,MaxValue=50", level), above ? 50 : 0);
    EXPECT_EQ(result("BinaryThreshold:Threshold=100,MaxValue=50,Inverted=true", level), above ? 0 : 50);
    EXPECT_EQ(result("ToZeroThreshold:Threshold=100", level), above ? level : 0);
    EXPECT_EQ(result("ToZeroThreshold:Threshold=100,Inverted=true", level), above ? 0 : level);
    EXPECT_EQ(result("TruncateThreshold:Threshold=100", level), std::min(level, 100));
  }
}

/// The split whose two classes differ most, by the definition of between-class variance.
int otsuThreshold(cv::Mat const& image) {
  double best = -1;
  int threshold = 0;
  for (int t = 0; t < 255; ++t) {
    cv::Mat const upper = image > t;
    double const share = cv::countNonZero(upper) / static_cast<double>(image.total());
    double const difference = cv::mean(image, upper)[0] - cv::mean(image, ~upper)[0];
    double const variance = share * (1 - share) * difference * difference;
    if (variance > best) {
      best = variance;
      threshold = t;
    }
  }
  return threshold;
}

TEST(ThresholdFilters, OtsuAndTriangleSplitTheHistogram) {
  // A histogram that falls linearly from a peak of 101 at level 20 to 1 at 120, and one step too steep at 40.
  std::vector<uchar> pixels;
  for (int level = 20; level <= 120; ++level) {
    int const count = 121 - level - (level == 40 ? 30 : 0);
    pixels.insert(pixels.end(), static_cast<std::size_t>(count), static_cast<uchar>(level));
  }
  cv::Mat const image(1, static_cast<int>(pixels.size()), CV_8U, pixels.data());
  EXPECT_TRUE(same(OtsuThresholdFilter().apply(image), image > otsuThreshold(image)));
  // The threshold lies one level from the dent, on the side away from the peak.
  EXPECT_TRUE(same(TriangleThresholdFilter().apply(image), image > 41));
  EXPECT_THROW(TriangleThresholdFilter().apply(cv::Mat(9, 9, CV_32F, cv::Scalar(1))), cv::Exception);
  EXPECT_THROW(OtsuThresholdFilter().apply(cv::Mat(9, 9, CV_32F, cv::Scalar(1))), cv::Exception);
}

TEST(ThresholdFilters, AdaptiveThresholdsCompareWithTheirMean) {
  cv::Mat const image = noise(30, 40);
  for (bool const isGaussian : {false, true}) {
    cv::Mat mean;
    image.convertTo(mean, CV_32F);
    if (isGaussian) {
      cv::GaussianBlur(mean, mean, cv::Size(7, 7), 0, 0, cv::BORDER_REPLICATE);
    } else {
      cv::blur(mean, mean, cv::Size(7, 7), cv::Point(-1, -1), cv::BORDER_REPLICATE);
    }
    mean.convertTo(mean, CV_8U);
    cv::Mat above;
    cv::compare(image, mean - 10, above, cv::CMP_GT);
    above.setTo(255, mean < 10);
    auto const filter = createImageFilter(isGaussian ? "GaussianAdaptiveThreshold" : "MeanAdaptiveThreshold");
    filter->getProperty("Radius") = 3;
    filter->getProperty("C") = 10;
    EXPECT_TRUE(same(filter->apply(image), above)) << isGaussian;
    filter->getProperty("Inverted") = true;
    filter->getProperty("MaxValue") = 40;
    EXPECT_TRUE(same(filter->apply(image), ~above & 40)) << isGaussian;
  }
}

} // namespace
