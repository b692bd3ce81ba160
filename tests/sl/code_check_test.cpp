// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/coding/code_check.hpp"

#include <cmath>
#include <cstdlib>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/core/library.hpp>
#include <vorn/mv/sl/patterns.hpp>

#include "sl/decode/pixel_reading.hpp"

namespace vorn::mv::sl {
namespace {

constexpr int period = 4;
constexpr int columns = 1280;
constexpr double dark = 20;
constexpr double bright = 180;
constexpr double amplitude = 80;

/// What a camera sees of a projector's columns, many camera pixels to one of the projector's: row 0 of each
/// image, sharp borders.
struct Seen {
  static constexpr int scale = 20; ///< camera pixels a projector pixel
  std::vector<cv::Mat> phases;
  std::vector<cv::Mat> codes;

  Seen() {
    Library::init();
    std::vector<cv::Mat> sequence;
    std::vector<cv::Mat> rows;
    generate_ps4_patterns(sequence, rows, {columns, 1});
    for (std::size_t i = 0; i < sequence.size(); ++i) {
      cv::Mat image(1, columns * scale, CV_8UC1);
      for (int x = 0; x < image.cols; ++x) {
        double const c = column(x);
        double const sine = 0.5 + 0.5 * std::sin((c / period + static_cast<double>(i) / 4.0) * 2 * CV_PI);
        double const share =
            i < 4 ? sine : sequence[i].at<uchar>(0, static_cast<int>(std::lround(c))) / 255.0;
        image.at<uchar>(0, x) = cv::saturate_cast<uchar>(dark + (bright - dark) * share);
      }
      (i < 4 ? phases : codes).push_back(image);
    }
  }

  /// Pixels of a projector column's width lie around its centre.
  static double column(int x) { return (x + 0.5) / scale - 0.5; }
  static int pixel(double column) { return static_cast<int>(std::lround((column + 0.5) * scale - 0.5)); }
  static float phase(double column) { return static_cast<float>(2 * CV_PI * column / period); }

  bool fits(int x, double claimedColumn) const {
    return CodeCheck(period).fits(reading(x), phase(claimedColumn));
  }

  /// What decoding reads from the images of one pixel.
  CodeReading reading(int x) const {
    std::vector<cv::Mat> pixel;
    for (auto const* images : {&phases, &codes}) {
      for (cv::Mat const& image : *images) {
        pixel.push_back(image.col(x));
      }
    }
    ScanDecodingSettings settings;
    settings.period = period;
    settings.resolution = columns;
    float wrapped = 0;
    short order = 0;
    int reading = 0;
    uchar contrast = 0;
    uchar state = 0;
    PixelReader(pixel, settings, {1, 1, 1, 1})
        .read(0, PhaseSource::Images, {&wrapped, &order, &reading, &contrast, &state});
    return static_cast<CodeReading>(reading);
  }
};

TEST(CodeCheck, TakesEveryPlaceOfItsStripeAndNoneOfAnotherAwayFromTheBorder) {
  Seen const seen;
  for (int x = Seen::pixel(0); x < Seen::pixel(columns - 1.0); x += 7) {
    double const c = Seen::column(x);
    ASSERT_TRUE(seen.fits(x, c)) << c;
    double const place = c - period * std::floor(c / period);
    if (place < 0.5 || place > 2.5) {
      continue; // near a border the images that change there may be anything
    }
    for (int periods : {-40, -3, -2, -1, 1, 2, 3, 16}) {
      double const claimed = c + periods * period;
      ASSERT_FALSE(claimed >= 0 && seen.fits(x, claimed)) << c << " taken for " << claimed;
    }
  }
}

TEST(CodeCheck, ExcusesOnBothSidesWhatChangesAtTheBorder) {
  // Beside the border between stripes 9 and 10 (columns 39 and 40), images may be at any stage of the change,
  // each at its own.
  Seen seen;
  for (double const c : {39.3, 39.7}) {
    int const x = Seen::pixel(c);
    int const other = Seen::pixel(c < 39.5 ? 39.7 : 39.3);
    int changing = 0;
    for (cv::Mat& image : seen.codes) {
      uchar const own = image.at<uchar>(0, x);
      uchar const beyond = image.at<uchar>(0, other);
      changing += own != beyond ? 1 : 0;
      for (uchar const stage : {own, beyond}) {
        image.at<uchar>(0, x) = stage;
        EXPECT_TRUE(seen.fits(x, c)) << c;
      }
      image.at<uchar>(0, x) = own;
    }
    EXPECT_GT(changing, 0);
    // In the stripe's middle the same image must be right.
    int const middle = Seen::pixel(c < 39.5 ? 37.5 : 41.5);
    for (cv::Mat& image : seen.codes) {
      uchar const own = image.at<uchar>(0, middle);
      image.at<uchar>(0, middle) = own > 100 ? uchar{20} : uchar{180};
      EXPECT_FALSE(seen.fits(middle, Seen::column(middle)));
      image.at<uchar>(0, middle) = own;
    }
  }
}

TEST(CodeCheck, HoldsOnlyCertainImagesAgainstAPixel) {
  // The middle is the mean of the fringes, 100; within 0.4 amplitudes of it, 68 to 132, an image says
  // nothing.
  Seen seen;
  double const c = 101.0; // at the crest, where the images tell the amplitude exactly
  int const x = Seen::pixel(c);
  for (cv::Mat& image : seen.codes) {
    bool const isLit = image.at<uchar>(0, x) == static_cast<uchar>(bright);
    for (int value = 0; value <= 255; ++value) {
      image.at<uchar>(0, x) = static_cast<uchar>(value);
      bool const saysLit = value > 132;
      bool const saysDark = value < 68;
      EXPECT_EQ(seen.fits(x, c), !(isLit ? saysDark : saysLit)) << value;
    }
    image.at<uchar>(0, x) = static_cast<uchar>(isLit ? bright : dark);
  }
}

} // namespace
} // namespace vorn::mv::sl
