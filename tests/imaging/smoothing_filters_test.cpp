// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/imaging/smoothing_filters.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

#include <vorn/mv/imaging/image_filters.hpp>

#include "imaging/filter_images.hpp"

namespace {

using namespace vorn::mv;
using vorn::test::bruteForce;
using vorn::test::noise;
using vorn::test::same;

double mean(std::vector<uchar>& pixels) {
  double sum = 0;
  for (uchar pixel : pixels) {
    sum += pixel;
  }
  return sum / static_cast<double>(pixels.size());
}

double median(std::vector<uchar>& pixels) {
  auto const middle = pixels.begin() + static_cast<std::ptrdiff_t>(pixels.size() / 2);
  std::nth_element(pixels.begin(), middle, pixels.end());
  return *middle;
}

TEST(SmoothingFilters, StatisticOfTheNeighbourhood) {
  cv::Mat const image = noise(20, 25);
  cv::Mat const square(7, 7, CV_8U, cv::Scalar(1));
  for (char const* name : {"Blur", "Box"}) {
    auto const filter = createImageFilter(name);
    filter->getProperty("Radius") = 3;
    EXPECT_TRUE(same(filter->apply(image), bruteForce(image, square, cv::BORDER_REFLECT_101, mean))) << name;
    EXPECT_EQ(filter->apply(cv::Mat(image.size(), CV_16SC3, cv::Scalar::all(-300))).type(), CV_16SC3);
  }
  MedianFilter filter;
  filter["Radius"] = 3;
  EXPECT_TRUE(same(filter.apply(image), bruteForce(image, square, cv::BORDER_REPLICATE, median)));
}

TEST(SmoothingFilters, RadiusZeroCopies) {
  cv::Mat const image = noise(20, 25);
  for (char const* name : {"Blur", "Box", "Gaussian", "Median", "Dilate", "Erode"}) {
    auto const filter = createImageFilter(name);
    filter->getProperty("Radius") = 0;
    EXPECT_TRUE(same(filter->apply(image), image)) << name;
  }
}

TEST(SmoothingFilters, GaussianHasItsSigmaInEachDirection) {
  constexpr double tolerance = 1e-6; // of float weights
  cv::Mat spot = cv::Mat::zeros(15, 15, CV_32F);
  spot.at<float>(7, 7) = 1.0F;
  GaussianFilter filter;
  filter["Radius"] = 4;
  filter["SigmaX"] = 1.5;
  filter["SigmaY"] = 0.8;
  cv::Mat_<float> const result = filter.apply(spot);
  EXPECT_NEAR(result(7, 9) / result(7, 7), std::exp(-2 * 2 / (2 * 1.5 * 1.5)), tolerance);
  EXPECT_NEAR(result(9, 7) / result(7, 7), std::exp(-2 * 2 / (2 * 0.8 * 0.8)), tolerance);
  EXPECT_GT(result(7, 11), 0.0F);
  EXPECT_EQ(result(7, 12), 0.0F);
  EXPECT_NEAR(cv::sum(result)[0], 1.0, tolerance);
}

TEST(SmoothingFilters, BilateralWeighsDistanceAndValue) {
  constexpr double tolerance = 1e-3; // OpenCV interpolates the weights of values in a table
  cv::Mat spot = cv::Mat::zeros(15, 15, CV_32F);
  spot.at<float>(7, 7) = 4.0F;
  BilateralFilter filter;
  filter["Diameter"] = 5;
  filter["SigmaColor"] = 3.0;
  filter["SigmaSpace"] = 1.5;
  double rest = 0; // weights of the round neighbourhood without its middle
  for (int dy = -2; dy <= 2; ++dy) {
    for (int dx = -2; dx <= 2; ++dx) {
      int const square = dx * dx + dy * dy;
      rest += square > 0 && square <= 4 ? std::exp(-square / (2 * 1.5 * 1.5)) : 0;
    }
  }
  rest *= std::exp(-4.0 * 4.0 / (2 * 3.0 * 3.0));
  EXPECT_NEAR(filter.apply(spot).at<float>(7, 7), 4.0 / (1 + rest), tolerance);
}

} // namespace
