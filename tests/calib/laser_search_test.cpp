// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/// The one laser line of an image: in colour, overexposed, beside another one, in deep images.

#include <cmath>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/calib/laser_color.hpp>

#include "calib/laser/laser_search.hpp"
#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

using vorn::test::expectError;

constexpr int columns = 400;
constexpr int rows = 240;

double placeAt(int x) {
  return 130 + 20 * std::sin(0.01 * x);
}

/// Adds a Gaussian stripe to a channel, `shift` pixels below the line.
void addStripe(cv::Mat& light, double shift, double height, double width, int firstColumn = 0) {
  for (int x = firstColumn; x < light.cols; ++x) {
    for (int y = 0; y < light.rows; ++y) {
      double const u = (y - placeAt(x) - shift) / width;
      light.at<float>(y, x) += static_cast<float>(height * std::exp(-u * u / 2));
    }
  }
}

cv::Mat digitized(cv::Mat const& light, double noise, int type = CV_8U, double perGrey = 1) {
  cv::RNG random(3);
  cv::Mat scatter(light.size(), light.type());
  random.fill(scatter, cv::RNG::NORMAL, 0, noise);
  cv::Mat image;
  cv::Mat(light + scatter).convertTo(image, type, perGrey);
  return image;
}

/// A lit room in grey and colours: a white plate, bars and wires of all directions and widths.
cv::Mat room() {
  cv::Mat image(rows, columns, CV_32FC3, cv::Scalar(70, 80, 75));
  cv::rectangle(image, cv::Rect(60, 40, 260, 170), cv::Scalar(200, 205, 198), cv::FILLED);
  cv::RNG random(5);
  for (int i = 0; i < 90; ++i) {
    cv::Point const from(random.uniform(0, columns), random.uniform(0, rows));
    cv::Point const to = from + cv::Point(random.uniform(-90, 90), random.uniform(-12, 12));
    double const grey = random.uniform(20.0, 215.0);
    cv::Scalar const color(grey * random.uniform(0.96, 1.04), grey, grey * random.uniform(0.96, 1.04));
    cv::line(image, from, to, color, random.uniform(2, 6), cv::LINE_8);
  }
  cv::GaussianBlur(image, image, {}, 0.8);
  return image;
}

/// The room with a line whose light is mostly in one channel.
cv::Mat roomWithLaser(std::size_t channel) {
  std::vector<cv::Mat> light;
  cv::split(room(), light);
  for (std::size_t i = 0; i < 3; ++i) {
    constexpr double height = 45;
    constexpr double crosstalk = 0.15;
    addStripe(light[i], 0, i == channel ? height : crosstalk * height, 1.8);
  }
  cv::Mat image;
  cv::merge(light, image);
  return digitized(image, 1.5);
}

struct Quality {
  int right = 0;
  int wrong = 0;
  double rms = 0;
};

Quality qualityOf(std::vector<LaserPeak> const& peaks) {
  Quality quality;
  for (LaserPeak const& peak : peaks) {
    double const error = static_cast<double>(peak.point.y) - placeAt(cvRound(peak.point.x));
    constexpr double wrong = 1.5;
    (std::abs(error) < wrong ? quality.right : quality.wrong) += 1;
    quality.rms += std::abs(error) < wrong ? error * error : 0;
  }
  quality.rms = std::sqrt(quality.rms / std::max(1, quality.right));
  return quality;
}

FoundLine lineIn(cv::Mat const& image, LaserColor const& color = {},
                 LaserLineOptions options = overexposedToo(), double white = 255) {
  options.dropMoved = false;
  return findLaserLine(laserGrey(image, color, white), options, Progress());
}

TEST(LaserColor, TheChannelsThatShowALineInALitRoomAreFound) {
  for (std::size_t channel = 0; channel < 3; ++channel) {
    cv::Mat const image = roomWithLaser(channel);
    Quality const before = qualityOf(lineIn(image).peaks);
    EXPECT_LT(before.right, columns / 2) << "the brightest channel does not show it";
    LaserColor const color = findLaserColor({image});
    EXPECT_GT(color.weights[channel], 0) << channel;
    EXPECT_LT(*std::min_element(color.weights.begin(), color.weights.end()), 0) << channel;
    Quality const found = qualityOf(lineIn(image, color).peaks);
    EXPECT_GT(found.right, 0.95 * columns) << channel;
    EXPECT_LE(found.wrong, 4) << channel;
    EXPECT_LT(found.rms, 0.25) << channel;
    // The same in 16 bits.
    cv::Mat deep;
    image.convertTo(deep, CV_16U, 257);
    EXPECT_EQ(findLaserColor({deep}).weights, color.weights);
  }
}

TEST(LaserColor, TheBrightestChannelIsKeptWhereItIsGood) {
  std::vector<cv::Mat> light(3, cv::Mat());
  for (cv::Mat& channel : light) {
    channel = cv::Mat(rows, columns, CV_32F, cv::Scalar(4));
  }
  addStripe(light[1], 0, 120, 2);
  cv::Mat dark;
  cv::merge(light, dark);
  EXPECT_TRUE(findLaserColor({digitized(dark, 1)}).isBrightest());
  EXPECT_TRUE(findLaserColor({digitized(light[1], 1)}).isBrightest()) << "grey";
  EXPECT_TRUE(findLaserColor({cv::Mat::zeros(rows, columns, CV_8UC3)}).isBrightest()) << "no line";
  LaserColor color;
  color.weights = {-1, 0, -1};
  expectError([&] { color.check(); }, "of which one is above 0");
}

TEST(LaserLine, OverexposedStripesAreMeasuredByTheirFlanks) {
  for (double const width : {1.5, 2.5, 4.0}) {
    cv::Mat light(rows, columns, CV_32F, cv::Scalar(20));
    addStripe(light, 0, 2500, width);
    addStripe(light, 60, 60, 2); // a weaker reflection, which must not stand in
    cv::Mat const image = digitized(light, 2);
    Quality const found = qualityOf(lineIn(image).peaks);
    EXPECT_EQ(found.wrong, 0) << width;
    EXPECT_GT(found.right, 0.97 * columns) << width;
    EXPECT_LT(found.rms, 0.06) << width;
    double predicted = 0;
    for (LaserPeak const& peak : lineIn(image).peaks) {
      EXPECT_TRUE(peak.isOverexposed);
      predicted += static_cast<double>(peak.sigma) / columns;
    }
    EXPECT_GT(predicted, found.rms / 2) << "its sigma is not too small";
  }
  // A border of the image that cuts a flank off leaves nothing to measure it by.
  cv::Mat cut(rows, columns, CV_32F, cv::Scalar(20));
  addStripe(cut, 0, 2500, 4);
  constexpr int lastRow = 142; // through the line's crests
  Quality const atBorder = qualityOf(lineIn(digitized(cut, 2).rowRange(0, lastRow)).peaks);
  EXPECT_EQ(atBorder.wrong, 0);
  EXPECT_GT(atBorder.right, columns / 4);
  EXPECT_LT(atBorder.right, 3 * columns / 4);
  EXPECT_LT(atBorder.rms, 0.06);
  // A stripe as high as the range, not clipped, is known better.
  cv::Mat light(rows, columns, CV_32F, cv::Scalar(20));
  addStripe(light, 0, 220, 2.5);
  std::vector<LaserPeak> const plain = lineIn(digitized(light, 2)).peaks;
  ASSERT_FALSE(plain.empty());
  EXPECT_FALSE(plain[10].isOverexposed);
  EXPECT_LT(plain[10].sigma, 0.02F);
}

TEST(LaserLine, AColumnWhoseBestStripeIsNotTheLinesIsLeftOut) {
  cv::Mat light(rows, columns, CV_32F, cv::Scalar(20));
  addStripe(light, 0, 60, 2);
  // Glints, brighter than the line, in some columns; and an overexposed one that falls off unevenly.
  cv::RNG random(9);
  std::vector<int> spoilt;
  for (int x = 7; x < columns; x += 23) {
    light.at<float>(30 + x % 50, x) += 500;
    light.at<float>(31 + x % 50, x) += 500;
    spoilt.push_back(x);
  }
  light(cv::Rect(200, 190, 6, 12)).setTo(400);
  for (int y = 202; y < 218; ++y) {
    light(cv::Rect(200, y, 6, 1)).setTo(250 - 14 * (y - 202));
  }
  FoundLine const found = lineIn(digitized(light, 1.5));
  EXPECT_EQ(qualityOf(found.peaks).wrong, 0);
  EXPECT_GT(found.peaks.size(), 0.9 * columns);
  for (LaserPeak const& peak : found.peaks) {
    EXPECT_FALSE(peak.point.x >= 200 && peak.point.x < 206) << peak.point;
  }
}

TEST(LaserLine, OfTwoStripesOneIsTheLineOrNone) {
  auto const found = [](double second, double rising) {
    cv::Mat light(rows, columns, CV_32F, cv::Scalar(20));
    addStripe(light, 0, 100, 2);
    addStripe(light, 50, second, 2);
    addStripe(light, 50, rising, 2, columns / 2);
    return lineIn(digitized(light, 1.5));
  };
  FoundLine const reflected = found(60, 0);
  EXPECT_EQ(qualityOf(reflected.peaks).wrong, 0);
  EXPECT_GT(reflected.peaks.size(), 0.97 * columns);
  EXPECT_TRUE(found(95, 0).peaks.empty());
  FoundLine const changing = found(50, 110);
  EXPECT_TRUE(changing.peaks.empty()) << "the other one is the brighter from the middle on";
  EXPECT_NE(changing.reason.find("side by side"), std::string::npos);
}

TEST(LaserLine, DeepImagesAreMeasuredInFullDepth) {
  cv::Mat light(rows, columns, CV_32F, cv::Scalar(10));
  addStripe(light, 0, 24, 1.6);
  LaserLineOptions options;
  options.minContrast = 10;
  Quality const bytes = qualityOf(lineIn(digitized(light, 0.05), {}, options).peaks);
  Quality const words = qualityOf(lineIn(digitized(light, 0.05, CV_16U, 16), {}, options, 4095).peaks);
  Quality const reals = qualityOf(lineIn(digitized(light, 0.05, CV_32F, 1.0 / 255), {}, options, 1).peaks);
  EXPECT_EQ(words.right, columns);
  EXPECT_EQ(reals.right, columns);
  // Of noise of 0.05 and rounding to 1/16.
  double const bound = std::hypot(0.05, 0.29 / 16) / 24 * std::sqrt(2 * 1.6 / std::sqrt(CV_PI));
  EXPECT_LT(words.rms, 1.2 * bound);
  EXPECT_LT(reals.rms, 1.2 * bound);
  EXPECT_GT(bytes.rms, 2 * words.rms);
  expectError([&] { extract_laser_line(digitized(light, 1, CV_16U)); }, "8-bit image");
}

} // namespace
} // namespace vorn::mv
