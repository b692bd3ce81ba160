// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/imaging/edge_filters.hpp>

#include <utility>

#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

#include <vorn/mv/imaging/image_depth.hpp>
#include <vorn/mv/imaging/image_filters.hpp>

#include "imaging/filter_images.hpp"

namespace {

using namespace vorn::mv;
using vorn::test::noise;
using vorn::test::same;

TEST(EdgeFilters, CannyStartsEdgesAtTheGreaterThreshold) {
  for (auto const& [step, edges] :
       {std::pair(24, 0), std::pair(26, 20)}) { // the gradient is 4 steps: 96, 104
    cv::Mat image(20, 20, CV_8U, cv::Scalar(100));
    image.colRange(10, 20) += step;
    EXPECT_EQ(cv::countNonZero(CannyFilter().apply(image)), edges) << step;
  }
}

/// The sum of kernel x neighbourhood with mirrored borders, in 16 bits.
cv::Mat correlated(cv::Mat const& image, cv::Matx<int, 3, 3> const& kernel) {
  cv::Mat padded;
  cv::copyMakeBorder(image, padded, 1, 1, 1, 1, cv::BORDER_REFLECT_101);
  cv::Mat result(image.size(), CV_16S);
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      int sum = 0;
      for (int i = 0; i < 9; ++i) {
        sum += kernel(i / 3, i % 3) * padded.at<uchar>(y + i / 3, x + i % 3);
      }
      result.at<short>(y, x) = cv::saturate_cast<short>(sum);
    }
  }
  return result;
}

TEST(EdgeFilters, LaplacianTakesRadiusAsAperture) {
  cv::Mat const image = noise(20, 25);
  LaplacianFilter filter;
  filter["Depth"] = ImageDepth::Int16;
  EXPECT_TRUE(same(filter.apply(image), correlated(image, {0, 1, 0, 1, -4, 1, 0, 1, 0})));
  filter["Radius"] = 3;
  EXPECT_TRUE(same(filter.apply(image), correlated(image, {2, 0, 2, 0, -8, 0, 2, 0, 2})));
  filter["Radius"] = 2;
  EXPECT_THROW(filter.apply(image), cv::Exception);
}

TEST(EdgeFilters, SobelDerivesInXAndY) {
  cv::Mat const image = noise(20, 25);
  cv::Mat clipped;
  correlated(image, {1, 0, -1, 0, 0, 0, -1, 0, 1}).convertTo(clipped, CV_8U);
  SobelFilter filter;
  EXPECT_TRUE(same(filter.apply(image), clipped));
  filter["Depth"] = ImageDepth::Int16;
  filter["Dy"] = 0;
  EXPECT_TRUE(same(filter.apply(image), correlated(image, {-1, 0, 1, -2, 0, 2, -1, 0, 1})));
  filter["Dx"] = 0;
  EXPECT_THROW(filter.apply(image), cv::Exception);
}

TEST(EdgeFilters, DepthIsThatOfTheOutput) {
  int const depths[] = {CV_8U, CV_16S, CV_32S, CV_32F, CV_64F};
  for (int item = 0; item < 5; ++item) {
    EXPECT_EQ(ImageDepth(static_cast<ImageDepth::Item>(item)).cvDepth(), depths[item]);
  }
  EXPECT_EQ(vorn::parseFilter("Sobel:Depth=Float", imageFilters())->apply(noise(9, 9)).type(), CV_32F);
}

} // namespace
