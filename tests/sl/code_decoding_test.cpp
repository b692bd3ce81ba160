// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/code_decoding.hpp>

#include <algorithm>
#include <cstdint>
#include <opencv2/core.hpp>

#include <gtest/gtest.h>

#include <vorn/mv/core/library.hpp>
#include <vorn/mv/sl/gray_code.hpp>
#include <vorn/mv/sl/patterns.hpp>

namespace vorn::mv {
namespace {

constexpr int anyCode = 65535;

class CodeDecoding : public testing::Test {
protected:
  static void SetUpTestSuite() { init_library(); }
};

/// Images in which about a third of the pixels have hardly any contrast.
std::vector<cv::Mat> randomStack(std::size_t count, cv::Size size) {
  cv::Mat base(size, CV_8UC1);
  cv::Mat isFlat(size, CV_8UC1);
  cv::randu(base, 0, 250);
  cv::randu(isFlat, 0, 3);
  std::vector<cv::Mat> images(count);
  for (cv::Mat& image : images) {
    cv::Mat noise(size, CV_8UC1);
    cv::randu(noise, 0, 6);
    image.create(size, CV_8UC1);
    cv::randu(image, 0, 256);
    cv::Mat(base + noise).copyTo(image, isFlat == 0);
  }
  return images;
}

struct Range {
  int lowest = 255;
  int highest = 0;
};

Range rangeAt(std::vector<cv::Mat> const& images, int y, int x) {
  Range range;
  for (cv::Mat const& image : images) {
    range.lowest = std::min<int>(range.lowest, image.at<uchar>(y, x));
    range.highest = std::max<int>(range.highest, image.at<uchar>(y, x));
  }
  return range;
}

/// The rule of the binary decoder for one pixel, bit by bit.
int literalStripe(std::vector<cv::Mat> const& images, int y, int x, int maxCode, int minContrast) {
  Range const range = rangeAt(images, y, x);
  if (range.highest - range.lowest < minContrast) {
    return -1;
  }
  int const threshold = (range.lowest + range.highest) / 2;
  bool const reference = images[0].at<uchar>(y, x) > threshold;
  unsigned int word = reference ? 1 : 0;
  for (std::size_t k = 1; k < images.size(); ++k) {
    bool const differs = (images[k].at<uchar>(y, x) > threshold) != reference;
    word |= (differs ? 1U : 0U) << k;
  }
  auto const code = static_cast<std::int16_t>(static_cast<std::uint16_t>(word - 2));
  return code > maxCode ? -1 : code;
}

/// The rule of the Gray decoder for one pixel.
int literalGray(std::vector<cv::Mat> const& images, int y, int x, int maxCode, int minContrast,
                int fallback) {
  Range const range = rangeAt(images, y, x);
  int const threshold =
      range.highest - range.lowest < minContrast ? fallback : (range.lowest + range.highest) / 2;
  unsigned int word = 0;
  for (std::size_t k = 0; k < images.size(); ++k) {
    word |= (images[k].at<uchar>(y, x) > threshold ? 1U : 0U) << k;
  }
  int const code = static_cast<int>(gray2Bin(word));
  return code > maxCode ? 0 : code;
}

TEST_F(CodeDecoding, BinaryFollowsTheRulePixelByPixel) {
  cv::Mat code;
  for (std::size_t const count : {1U, 2U, 8U, 9U, 15U, 16U, 18U}) {
    std::vector<cv::Mat> const images = randomStack(count, {1100, 7});
    for (int const minContrast : {-3, 0, 4, 256, 1000}) {
      for (int const maxCode : {-40000, -2, 100, 40000}) {
        decode_binary_xor0_pattern(images, code, maxCode, minContrast, 0);
        ASSERT_EQ(code.type(), CV_16SC1);
        for (int y = 0; y < code.rows; ++y) {
          for (int x = 0; x < code.cols; ++x) {
            ASSERT_EQ(code.at<std::int16_t>(y, x), literalStripe(images, y, x, maxCode, minContrast))
                << count << " images, contrast " << minContrast << ", largest code " << maxCode;
          }
        }
      }
    }
  }
}

TEST_F(CodeDecoding, GrayFollowsTheRulePixelByPixel) {
  cv::Mat code;
  for (std::size_t const count : {1U, 9U, 13U, 16U}) {
    std::vector<cv::Mat> const images = randomStack(count, {1100, 5});
    for (int const fallback : {-1, 0, 128, 255, 300}) {
      for (int const maxCode : {-1, 200, anyCode}) {
        decode_gray_patterns(images, code, maxCode, 4, fallback);
        ASSERT_EQ(code.type(), CV_16UC1);
        for (int y = 0; y < code.rows; ++y) {
          for (int x = 0; x < code.cols; ++x) {
            ASSERT_EQ(code.at<std::uint16_t>(y, x), literalGray(images, y, x, maxCode, 4, fallback))
                << count << " images, fallback " << fallback << ", largest code " << maxCode;
          }
        }
      }
    }
  }
  EXPECT_THROW(decode_gray_patterns(randomStack(17, {4, 4}), code, anyCode, 4, 0), std::invalid_argument);
}

TEST_F(CodeDecoding, WhatWasGeneratedDecodesToTheStripeIndex) {
  for (cv::Size const size : {cv::Size(1024, 768), cv::Size(1280, 800), cv::Size(37, 11), cv::Size(8, 8)}) {
    std::vector<cv::Mat> columns;
    std::vector<cv::Mat> rows;
    generate_ps4_patterns(columns, rows, size);
    for (bool const alongColumns : {true, false}) {
      std::vector<cv::Mat> const& sequence = alongColumns ? columns : rows;
      cv::Mat code;
      decode_binary_xor0_pattern({sequence.begin() + 4, sequence.end()}, code, anyCode, 1, 0);
      for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
          ASSERT_EQ(code.at<std::int16_t>(y, x), alongColumns ? x / 4 : y / 8) << size;
        }
      }
    }
  }
}

TEST_F(CodeDecoding, GrayPlanesDecodeToTheColumn) {
  std::vector<cv::Mat> planes;
  for (int bit = 0; bit < 12; ++bit) {
    planes.push_back(generate_vertical_graycode_image(4000, 2, bit));
  }
  cv::Mat code;
  decode_gray_patterns(planes, code, anyCode, 1, 128);
  for (int x = 0; x < code.cols; ++x) {
    ASSERT_EQ(code.at<std::uint16_t>(1, x), x);
  }
  decode_gray_patterns({planes[0], planes[1]}, code, 2, 1, 128);
  EXPECT_EQ(code.at<std::uint16_t>(0, 2), 2);
  EXPECT_EQ(code.at<std::uint16_t>(0, 3), 0);
}

} // namespace
} // namespace vorn::mv
