// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/patterns.hpp>

#include <cmath>
#include <functional>
#include <opencv2/core.hpp>

#include <gtest/gtest.h>

#include <vorn/core/exception.hpp>
#include <vorn/mv/sl/gray_code.hpp>

namespace vorn::mv {
namespace {

/// Holds every pixel of a CV_8UC1 image against expected(y, x).
void expectImage(cv::Mat const& image, cv::Size size, std::function<int(int, int)> const& expected) {
  ASSERT_EQ(image.type(), CV_8UC1);
  ASSERT_EQ(image.size(), size);
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      ASSERT_EQ(image.at<uchar>(y, x), expected(y, x)) << "at row " << y << ", column " << x;
    }
  }
}

TEST(GrayCode, NeighboursDifferInOneBitAndDecodeBack) {
  for (unsigned int const start : {0U, 1U << 15U, 0x7FFFFF00U, 0xFFFFF000U}) {
    for (unsigned int v = start; v < start + 2000; ++v) {
      unsigned int const change = bin2Gray(v) ^ bin2Gray(v + 1);
      EXPECT_TRUE(change != 0 && (change & (change - 1)) == 0) << v;
      EXPECT_EQ(gray2Bin(bin2Gray(v)), v);
    }
  }
  std::vector<unsigned short> lut{7};
  EXPECT_THROW(create_graycode_LUT(lut, -1), Exception);
  EXPECT_THROW(create_graycode_LUT(lut, 65537), Exception);
  EXPECT_EQ(lut, std::vector<unsigned short>{7});
  create_graycode_LUT(lut, 6);
  EXPECT_EQ(lut, (std::vector<unsigned short>{0, 1, 3, 2, 7, 6}));
}

TEST(GrayPatterns, PlanesSpellTheStripeIndexInGrayCode) {
  cv::Size const size(101, 67);
  for (bool const vertical : {false, true}) {
    for (int const period : {1, 3, 8}) {
      for (int bit = 0; bit < 7; ++bit) {
        cv::Mat const plane = generate_gray_pattern(size, period, bit, vertical);
        EXPECT_EQ(cv::norm(plane, generate_gray_pattern(size, period, bit + 32, vertical)), 0);
        expectImage(plane, size, [&](int y, int x) {
          // Bit n of a Gray code is high where the number modulo 2^(n+2) is in the middle half.
          int const within = (vertical ? x : y) / period % (4 << bit);
          return within >= (1 << bit) && within < (3 << bit) ? 255 : 0;
        });
      }
    }
  }
  EXPECT_EQ(
      cv::norm(generate_horizontal_graycode_image(101, 67, 3), generate_gray_pattern(size, 1, 3, false)), 0);
  EXPECT_EQ(cv::norm(generate_vertical_graycode_image(101, 67, 35), generate_gray_pattern(size, 1, 3, true)),
            0);
}

TEST(LinePatterns, OneLineAPeriod) {
  expectImage(generate_horizontal_line_image(5, 20, 7, 3), {5, 20},
              [](int y, int) { return y == 3 || y == 10 || y == 17 ? 255 : 0; });
  expectImage(generate_vertical_line_image(20, 5, 7, 3), {20, 5},
              [](int, int x) { return x == 3 || x == 10 || x == 17 ? 255 : 0; });
  // No remainder is 7 or negative.
  EXPECT_EQ(cv::countNonZero(generate_vertical_line_image(20, 5, 7, 7)), 0);
  EXPECT_EQ(cv::countNonZero(generate_vertical_line_image(20, 5, 7, -4)), 0);
}

TEST(StripePattern, NegativeRemaindersAreInsideTheStripe) {
  expectImage(generate_vertical_stripe_pattern(12, 3, 5, 2, 1), {12, 3},
              [](int, int x) { return x == 1 || x == 2 || x == 6 || x == 7 || x == 11 ? 255 : 0; });
  // x + 5 - 9 is negative for x < 4 and counts from 0 there on.
  expectImage(generate_vertical_stripe_pattern(12, 3, 5, 2, 9), {12, 3},
              [](int, int x) { return x < 6 || x == 9 || x == 10 ? 255 : 0; });
}

TEST(HighFrequencyPatterns, ShiftedSquareWavesAndTheirInverses) {
  std::vector<cv::Mat> out(3);
  generate_high_frequency_patterns(40, 2, out, 8, 3); // step 2
  ASSERT_EQ(out.size(), 6U);
  for (int k = 0; k < 3; ++k) {
    cv::Mat const& image = out[static_cast<std::size_t>(2 * k)];
    expectImage(image, {40, 2}, [k](int, int x) { return (x + 2 * k) % 16 >= 8 ? 255 : 0; });
    expectImage(out[static_cast<std::size_t>(2 * k + 1)], {40, 2},
                [&](int y, int x) { return 255 - image.at<uchar>(y, x); });
  }
  EXPECT_THROW(generate_high_frequency_patterns(40, 2, out, 0, 3), Exception);
  EXPECT_EQ(out.size(), 6U);
  generate_high_frequency_patterns(40, 2, out, 0, -1);
  EXPECT_TRUE(out.empty());
}

TEST(PhasePattern, CrestSaturatesAndTroughIsBlack) {
  expectImage(generate_phase_pattern({8, 4}, 4, 0, 1.0F, true), {8, 4}, [](int, int x) {
    int const values[] = {128, 255, 128, 0};
    return values[x % 4];
  });
  for (float const gamma : {1.0F, 2.2F, -0.5F}) {
    for (int const shift : {0, 5, -23}) {
      expectImage(generate_phase_pattern({6, 50}, 17, shift, gamma, false), {6, 50}, [&](int y, int) {
        double const sine = std::sin(2 * CV_PI * ((y + shift) % 17) / 17);
        double const value = 256 * std::pow(sine * 0.5 + 0.5, gamma);
        return static_cast<int>(std::lround(std::min(value, 255.0)));
      });
    }
  }
}

TEST(PhaseShiftPatterns, GammaActsOnTheVerticalOneOnly) {
  for (float const gamma : {1.0F, 2.2F}) {
    expectImage(generate_horizontal_phase_shift_pattern(5, 40, 19, 4, gamma), {5, 40}, [](int y, int) {
      return static_cast<int>((std::cos((y - 4) * 2 * CV_PI / 19) + 1.0) * 127.5);
    });
    expectImage(generate_vertical_phase_shift_pattern(40, 5, 19, 4, gamma), {40, 5}, [&](int, int x) {
      double const relative = (std::cos((x - 4) * 2 * CV_PI / 19) + 1.0) * 0.5;
      return static_cast<int>(std::pow(static_cast<float>(relative), gamma) * 255.0);
    });
  }
}

TEST(CombinedPatterns, HoldFringesReferenceAndPlanes) {
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
  generate_ps4_patterns(columns, rows, {1024, 768});
  ASSERT_EQ(columns.size(), 13U);
  ASSERT_EQ(rows.size(), 11U);
  EXPECT_EQ(columns[5].at<uchar>(0, 0), 255);

  int const quarterWave[] = {128, 255, 128, 0}; // sine of a four-pixel fringe
  for (std::size_t i = 0; i < columns.size(); ++i) {
    expectImage(columns[i], {1024, 768}, [&](int, int x) {
      if (i < 4) {
        return quarterWave[(static_cast<std::size_t>(x) + i) % 4];
      }
      int const word = x / 4 + 2;
      int const bit = i == 4 ? word & 1 : (word >> (i - 4) ^ word) & 1;
      return bit * 255;
    });
  }
  int const eighthWave[] = {128, 219, 255, 219, 128, 37, 0, 37}; // of an eight-pixel one
  expectImage(rows[1], {1024, 768}, [&](int y, int) { return eighthWave[(y + 2) % 8]; });
  expectImage(rows[10], {1024, 768}, [](int y, int) {
    int const word = y / 8 + 2;
    return ((word >> 6 ^ word) & 1) * 255;
  });
}

TEST(Patterns, RejectSizesAndPeriodsThatCannotBe) {
  std::vector<cv::Mat> first(1);
  std::vector<cv::Mat> second(2);
  EXPECT_THROW(generate_gray_pattern({4, 4}, 0, 0, true), Exception);
  EXPECT_THROW(generate_vertical_graycode_image(-1, 4, 0), Exception);
  EXPECT_THROW(generate_horizontal_line_image(4, 4, 0, 0), Exception);
  EXPECT_THROW(generate_vertical_stripe_pattern(4, 4, 0, 1, 0), Exception);
  EXPECT_THROW(generate_phase_pattern({4, 4}, 0, 0, 1.0F, true), Exception);
  EXPECT_THROW(generate_phase_pattern({4, 4}, 4, 0, NAN, true), Exception);
  EXPECT_THROW(generate_horizontal_phase_shift_pattern(4, -4, 4, 0, 1.0F), Exception);
  EXPECT_THROW(generate_vertical_phase_shift_pattern(4, 4, -4, 0, 1.0F), Exception);
  EXPECT_THROW(generate_ps4_patterns(first, second, {4, -4}), Exception);
  EXPECT_EQ(first.size(), 1U);
  EXPECT_EQ(second.size(), 2U);
  EXPECT_TRUE(generate_vertical_line_image(0, 4, 2, 0).empty());
}

} // namespace
} // namespace vorn::mv
