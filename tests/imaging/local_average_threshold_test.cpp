// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <string>

#include <opencv2/core.hpp>

#include <gtest/gtest.h>

#include <vorn/core/exception.hpp>
#include <vorn/mv/imaging/threshold_filters.hpp>

#include "imaging/local_average_threshold.hpp"

namespace {

using vorn::mv::LocalAverageAdaptiveThresholdFilter;
using vorn::mv::LocalAverageThreshold;

/// Every window summed on its own, and the division done.
cv::Mat bruteForce(cv::Mat const& input, LocalAverageThreshold const& rule) {
  int const radius = rule.radius;
  cv::Mat output = input.clone();
  for (int y = radius + 1; y < input.rows - radius; ++y) {
    for (int x = radius + 1; x < input.cols - radius; ++x) {
      cv::Rect const window(x - radius + 1, y - radius + 1, 2 * radius, 2 * radius);
      int const sum = static_cast<int>(cv::sum(input(window))[0]);
      bool const passes = input.at<uchar>(y, x) >= sum * rule.percent / (radius * radius * 400);
      output.at<uchar>(y, x) = passes ? rule.passValue : rule.failValue;
    }
  }
  return output;
}

cv::Mat thresholded(cv::Mat const& input, LocalAverageThreshold const& rule) {
  cv::Mat output;
  localAverageThreshold(input, rule, output);
  return output;
}

/// Noise on a slope: values on both sides of the local mean at any percentage.
cv::Mat noisySlope(int rows, int columns) {
  cv::Mat image(rows, columns, CV_8U);
  cv::randu(image, 0, 160);
  for (int x = 0; x < columns; ++x) {
    image.col(x) += 95.0 * x / columns;
  }
  return image;
}

bool same(cv::Mat const& a, cv::Mat const& b) {
  return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0;
}

std::string refusal(cv::Mat const& image) {
  try {
    LocalAverageAdaptiveThresholdFilter().apply(image);
  } catch (vorn::Exception const& e) {
    EXPECT_EQ(e.file(), "apply");
    return e.message();
  }
  return "accepted";
}

TEST(LocalAverageThreshold, ComparisonIsThatWithTheRoundedQuotient) {
  for (int const radius : {5, 8, 9, 31, 50}) {
    for (int const percent : {0, 1, 33, 90, 99, 100}) {
      int const denominator = 400 * radius * radius;
      for (int sum = 0; sum <= 4 * radius * radius * 255; ++sum) {
        int const quotient = sum * percent / denominator;
        for (int const value : {0, std::max(quotient - 1, 0), quotient, std::min(quotient + 1, 255), 255}) {
          ASSERT_EQ(vorn::mv::reachesPart(value, sum, percent, denominator), value >= quotient)
              << radius << " " << percent << " " << sum << " " << value;
        }
      }
    }
  }
}

TEST(LocalAverageThreshold, SumsEveryWindow) {
  for (int const radius : {1, 5, 6, 7, 8, 9, 13, 32, 50}) {
    cv::Mat const noisy = noisySlope(2 * radius + 40, 2 * radius + 50);
    cv::Mat white(noisy.size(), CV_8U, cv::Scalar(255)); // fills the sums
    white.at<uchar>(radius + 5, radius + 5) = 100;
    for (int const percent : {0, 90, 100}) {
      LocalAverageThreshold const rule{radius, percent, 200, 7};
      EXPECT_TRUE(same(thresholded(noisy, rule), bruteForce(noisy, rule))) << radius << " " << percent;
      EXPECT_TRUE(same(thresholded(white, rule), bruteForce(white, rule))) << radius << " " << percent;
    }
  }
}

TEST(LocalAverageThreshold, WideImagesAndAnyNumberOfThreads) {
  cv::Mat const wide = noisySlope(16, 2500);
  cv::Mat const tall = noisySlope(1400, 33);
  LocalAverageThreshold const rule{5, 90, 255, 0};
  int const threads = cv::getNumThreads();
  for (int const count : {1, 2, 5}) {
    cv::setNumThreads(count);
    EXPECT_TRUE(same(thresholded(wide, rule), bruteForce(wide, rule))) << count;
    EXPECT_TRUE(same(thresholded(tall, rule), bruteForce(tall, rule))) << count;
  }
  cv::setNumThreads(threads);
}

TEST(LocalAverageThreshold, SumOfTheWholeImageBeyond32Bits) {
  cv::Mat image(4200, 4200, CV_8U, cv::Scalar(255)); // 4.5e9 in all
  cv::Point const dark(4190, 4190);
  image.at<uchar>(dark) = 200;
  cv::Mat expected = image.clone();
  expected.at<uchar>(dark) = 0;
  EXPECT_TRUE(same(thresholded(image, {5, 90, 255, 0}), expected));
}

TEST(LocalAverageThreshold, ImageWithoutAWholeWindowIsCopied) {
  for (cv::Size const size : {cv::Size(11, 40), cv::Size(40, 11), cv::Size(1, 1)}) {
    cv::Mat const image = noisySlope(size.height, size.width);
    EXPECT_TRUE(same(thresholded(image, {5, 90, 255, 0}), image));
  }
  for (cv::Mat const& empty : {cv::Mat(), cv::Mat(0, 20, CV_8U)}) {
    EXPECT_TRUE(LocalAverageAdaptiveThresholdFilter().apply(empty).empty());
  }
  cv::Mat const one(12, 12, CV_8U, cv::Scalar(9)); // room for a single window
  cv::Mat expected = one.clone();
  expected.at<uchar>(6, 6) = 255;
  EXPECT_TRUE(same(thresholded(one, {5, 90, 255, 0}), expected));
}

TEST(LocalAverageThreshold, RegionIsAnImageOfItsOwn) {
  cv::Mat const image = noisySlope(90, 120);
  cv::Mat const region = image(cv::Rect(17, 11, 70, 60));
  LocalAverageAdaptiveThresholdFilter const filter;
  EXPECT_TRUE(same(filter.apply(region), filter.apply(region.clone())));
}

TEST(LocalAverageThreshold, InvertedIsTheComplementWithinTheBand) {
  cv::Mat const image = noisySlope(40, 50);
  LocalAverageAdaptiveThresholdFilter filter;
  filter["MaxValue"] = 77;
  filter["Threshold"] = 95;
  filter["Radius"] = 6;
  EXPECT_TRUE(same(filter.apply(image), bruteForce(image, {6, 95, 77, 0})));
  filter["Inverted"] = true;
  EXPECT_TRUE(same(filter.apply(image), bruteForce(image, {6, 95, 0, 77})));
}

TEST(LocalAverageThreshold, RefusesWhatIsNoGreyImage) {
  std::string const channels = "This method only work with grayscale image. (input.channels() == 1)";
  EXPECT_EQ(refusal(cv::Mat(20, 20, CV_8UC3, cv::Scalar::all(0))), channels);
  EXPECT_EQ(refusal(cv::Mat(20, 20, CV_32FC2, cv::Scalar::all(0))), channels);
  int const sizes[] = {20, 20, 20};
  for (cv::Mat const& image : {cv::Mat(20, 20, CV_16U, cv::Scalar(0)), cv::Mat(20, 20, CV_8S, cv::Scalar(0)),
                               cv::Mat(3, sizes, CV_8U, cv::Scalar(0))}) {
    EXPECT_NE(refusal(image).find("(input.type() == CV_8UC1)"), std::string::npos);
  }
}

} // namespace
