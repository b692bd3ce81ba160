// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/imaging/morphology_filters.hpp>

#include <algorithm>
#include <utility>
#include <vector>

#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

#include <vorn/mv/imaging/image_filters.hpp>
#include <vorn/mv/imaging/morph_shape.hpp>

#include "imaging/filter_images.hpp"

namespace {

using namespace vorn::mv;
using vorn::test::bruteForce;
using vorn::test::noise;
using vorn::test::same;

TEST(MorphologyFilters, ExtremesOfTheShape) {
  cv::Mat const image = noise(20, 25);
  for (auto const& [item, shape] :
       {std::pair(MorphShape::Rect, cv::MORPH_RECT), std::pair(MorphShape::Cross, cv::MORPH_CROSS),
        std::pair(MorphShape::Ellipse, cv::MORPH_ELLIPSE)}) {
    cv::Mat const mask = cv::getStructuringElement(shape, cv::Size(7, 7));
    for (bool const isGreatest : {false, true}) {
      auto const filter = createImageFilter(isGreatest ? "Dilate" : "Erode");
      filter->getProperty("Radius") = 3;
      filter->getProperty("Shape") = MorphShape(item);
      auto const extreme = [&](std::vector<uchar>& pixels) {
        return double(isGreatest ? *std::max_element(pixels.begin(), pixels.end())
                                 : *std::min_element(pixels.begin(), pixels.end()));
      };
      EXPECT_TRUE(same(filter->apply(image), bruteForce(image, mask, cv::BORDER_REPLICATE, extreme)));
    }
  }
}

} // namespace
