// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/phase_decoding.hpp>

#include <cmath>
#include <opencv2/core.hpp>

#include <gtest/gtest.h>

#include <vorn/mv/core/library.hpp>
#include <vorn/mv/sl/lookup_tables.hpp>
#include <vorn/mv/sl/patterns.hpp>

namespace vorn::mv {
namespace {

/// A few roundings to float on the way (√3, its product, the squares, the result), relative.
constexpr double floatRounding = 2.5e-7;

class PhaseDecoding : public testing::Test {
protected:
  static void SetUpTestSuite() { init_library(); }
};

std::vector<cv::Mat> randomStack(std::size_t count, cv::Size size) {
  std::vector<cv::Mat> images(count);
  for (cv::Mat& image : images) {
    image.create(size, CV_8UC1);
    cv::randu(image, 0, 256);
  }
  return images;
}

TEST_F(PhaseDecoding, FourAndThreeStepsGiveTheVectorsAngleAndLength) {
  for (std::size_t const count : {3U, 4U}) {
    std::vector<cv::Mat> const images = randomStack(count, {1300, 40});
    cv::Mat_<float> phase;
    cv::Mat_<float> magnitude;
    decode_phase_shift(images, phase);
    calc_magnitude(images, magnitude);
    for (int y = 0; y < phase.rows; ++y) {
      for (int x = 0; x < phase.cols; ++x) {
        auto const intensity = [&](std::size_t k) { return static_cast<double>(images[k].at<uchar>(y, x)); };
        double const i0 = intensity(0);
        double const i1 = intensity(1);
        double const i2 = intensity(2);
        double const sine = count == 4 ? i0 - i2 : 2 * i0 - i1 - i2;
        double const cosine = count == 4 ? i1 - intensity(3) : std::sqrt(3.0) * (i1 - i2);
        double const angle = std::atan2(sine, cosine);
        double const positive = angle < 0 ? angle + 2 * CV_PI : angle;
        double const length = std::hypot(sine, cosine);
        ASSERT_NEAR(phase(y, x), positive, 2 * CV_PI * floatRounding);
        ASSERT_NEAR(magnitude(y, x), length, length * floatRounding);
        ASSERT_LT(phase(y, x), 2 * CV_PI);
      }
    }
  }
}

TEST_F(PhaseDecoding, ReadsBackTheProjectorsOwnPatterns) {
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
  generate_ps4_patterns(columns, rows, {64, 48});
  cv::Mat_<float> phase;
  // The crest saturates at 255 instead of 256, and values are rounded: half a grey level each of 128.
  constexpr double roundingError = 1.0 / 128;
  decode_phase_shift({columns[0], columns[1], columns[2], columns[3]}, phase);
  for (int x = 0; x < phase.cols; ++x) {
    EXPECT_NEAR(phase(7, x), x % 4 * CV_PI / 2, roundingError);
  }
  decode_phase_shift({rows[0], rows[1], rows[2], rows[3]}, phase);
  for (int y = 0; y < phase.rows; ++y) {
    EXPECT_NEAR(phase(y, 7), y % 8 * CV_PI / 4, roundingError);
  }
}

TEST_F(PhaseDecoding, FiveImagesAllocateAndWriteNothing) {
  cv::Mat_<float> phase(3, 5, 7.0F);
  decode_phase_shift(randomStack(5, {5, 3}), phase);
  EXPECT_EQ(cv::countNonZero(phase == 7.0F), 15);
  decode_phase_shift(randomStack(5, {6, 4}), phase);
  EXPECT_EQ(phase.size(), cv::Size(6, 4));
}

TEST_F(PhaseDecoding, TablesAreBuiltOnceAndDemandedByTheDecoders) {
  EXPECT_EQ(get_lut_atan2()(255, 256), 0.0F);
  EXPECT_EQ(get_lut_atan2()(254, 255), static_cast<float>(1.5 * CV_PI));
  EXPECT_EQ(get_lut_atan2()(255, 255), 0.0F);
  EXPECT_EQ(get_lut_atan2_p3().size(), cv::Size(511, 1021));
  EXPECT_EQ(get_lut_mag_p3().size(), cv::Size(511, 1021));
  EXPECT_EQ(get_lut_gray2bin()[4096], 8191);
  EXPECT_EQ(get_lut_bin2gray()[8191], 4096);
  uchar const* const before = get_lut_atan2().data;
  init_library();
  EXPECT_EQ(get_lut_atan2().data, before);

  cv::Mat_<float> const table = get_lut_atan2();
  get_lut_atan2().release();
  cv::Mat_<float> phase;
  try {
    decode_phase_shift(randomStack(4, {5, 3}), phase);
    ADD_FAILURE() << "decoded without a table";
  } catch (std::logic_error const& e) {
    EXPECT_NE(std::string(e.what()).find("Library::init"), std::string::npos);
  }
  EXPECT_TRUE(phase.empty());
  get_lut_atan2() = table;
}

} // namespace
} // namespace vorn::mv
