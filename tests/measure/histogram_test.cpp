// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/measure/histogram.hpp>

#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

using test::expectError;

cv::Mat randomImage(cv::Size size, int type, double low, double high) {
  cv::Mat image(size, type);
  cv::theRNG().fill(image, cv::RNG::UNIFORM, cv::Scalar::all(low), cv::Scalar::all(high));
  return image;
}

/// The values of a channel, one by one, in order.
template <class T>
std::vector<double> valuesOf(cv::Mat const& image, int channel, cv::Mat const& mask = {}) {
  std::vector<double> values;
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      if (mask.empty() || mask.at<uchar>(y, x) != 0) {
        values.push_back(static_cast<double>(image.ptr<T>(y)[x * image.channels() + channel]));
      }
    }
  }
  std::sort(values.begin(), values.end());
  return values;
}

template <class T>
void expectCountsOfEachValue(cv::Mat const& image, cv::Mat const& mask = {}) {
  HistogramSettings settings;
  settings.mask = mask;
  Histogram const histogram = calcHistogram(image, settings);
  ASSERT_EQ(histogram.channels.size(), static_cast<std::size_t>(image.channels()));
  for (int c = 0; c < image.channels(); ++c) {
    auto const values = valuesOf<T>(image, c, mask);
    ChannelHistogram const& channel = histogram.channels[static_cast<std::size_t>(c)];
    std::map<double, std::uint64_t> expected;
    double sum = 0.0;
    for (double const value : values) {
      ++expected[value];
      sum += value;
    }
    for (std::size_t bin = 0; bin < channel.counts.size(); ++bin) {
      ASSERT_EQ(channel.counts[bin], expected[histogram.center(bin)]) << "channel " << c << " bin " << bin;
    }
    EXPECT_EQ(channel.least, values.front());
    EXPECT_EQ(channel.greatest, values.back());
    EXPECT_NEAR(channel.mean, sum / static_cast<double>(values.size()), 1e-9 * std::abs(sum));
    for (double const share : {0.0, 0.001, 0.25, 0.5, 0.999, 1.0}) {
      auto const rank = static_cast<std::size_t>(std::ceil(share * static_cast<double>(values.size())));
      EXPECT_EQ(histogram.percentile(static_cast<std::size_t>(c), share),
                values[std::max<std::size_t>(rank, 1) - 1]);
    }
  }
}

TEST(Histogram, OfIntegersHasABinForEachValue) {
  cv::Mat mask = randomImage({83, 47}, CV_8UC1, 0, 2);
  expectCountsOfEachValue<uchar>(randomImage({83, 47}, CV_8UC1, 0, 256));
  expectCountsOfEachValue<uchar>(randomImage({83, 47}, CV_8UC1, 10, 20), mask);
  expectCountsOfEachValue<uchar>(randomImage({83, 47}, CV_8UC3, 0, 200), mask);
  expectCountsOfEachValue<schar>(randomImage({83, 47}, CV_8SC2, -100, 100));
  expectCountsOfEachValue<ushort>(randomImage({83, 47}, CV_16UC1, 60000, 65536));
  expectCountsOfEachValue<short>(randomImage({83, 47}, CV_16SC3, -3000, 3000), mask);
  // A part of a larger image, and one flat value.
  expectCountsOfEachValue<uchar>(randomImage({100, 60}, CV_8UC1, 0, 256)(cv::Rect(3, 5, 61, 41)));
  expectCountsOfEachValue<uchar>(cv::Mat(70, 90, CV_8UC1, cv::Scalar(77)));
}

TEST(Histogram, OfFloatsLeavesOutWhatIsNotFinite) {
  cv::Mat_<float> image(1, 9);
  float const inf = std::numeric_limits<float>::infinity();
  std::copy_n(std::vector<float>{0.0F, 0.25F, 0.5F, 0.75F, 1.0F, std::nanf(""), inf, -inf, 0.5F}.begin(), 9,
              image.begin());
  HistogramSettings settings;
  settings.bins = 4;
  Histogram const all = calcHistogram(image, settings);
  EXPECT_EQ(all.low, 0.0);
  EXPECT_EQ(all.high, 1.0);
  EXPECT_EQ(all.channels[0].counts, (std::vector<std::uint64_t>{1, 1, 2, 2}))
      << "the upper end is in the last bin";
  EXPECT_EQ(all.channels[0].notFinite, 3U);
  EXPECT_EQ(all.cumulative(0), (std::vector<std::uint64_t>{1, 2, 4, 6}));
  EXPECT_EQ(all.channels[0].mean, 0.5);

  settings.low = 0.3;
  settings.high = 0.7;
  Histogram const part = calcHistogram(image, settings);
  EXPECT_EQ(part.channels[0].below, 2U);
  EXPECT_EQ(part.channels[0].above, 2U);
  EXPECT_EQ(part.total(0), 6U);
  EXPECT_EQ(part.percentile(0, 0.0), 0.0) << "below all bins: the least value";
  EXPECT_EQ(part.percentile(0, 1.0), 1.0);
  EXPECT_NEAR(part.percentile(0, 0.5), 0.55, 1e-12) << "the middle of the bin";

  image.setTo(std::nanf(""));
  Histogram const none = calcHistogram(image);
  EXPECT_EQ(none.total(0), 0U);
  EXPECT_TRUE(std::isnan(none.channels[0].mean));
  expectError([&] { none.percentile(0, 0.5); }, "no finite value");
  image.setTo(-3.5F);
  EXPECT_NEAR(calcHistogram(image).percentile(0, 0.5), -3.5, 1e-2);
}

TEST(Histogram, BinsOfAnyWidthHoldTheSameValues) {
  cv::Mat const image = randomImage({83, 47}, CV_16UC1, 0, 4096);
  HistogramSettings settings;
  settings.bins = 16;
  settings.low = -0.5;
  settings.high = 4095.5;
  Histogram const histogram = calcHistogram(image, settings);
  auto const values = valuesOf<ushort>(image, 0);
  for (std::size_t bin = 0; bin < 16; ++bin) {
    auto const its = std::count_if(values.begin(), values.end(),
                                   [&](double v) { return static_cast<std::size_t>(v) / 256 == bin; });
    EXPECT_EQ(histogram.channels[0].counts[bin], static_cast<std::uint64_t>(its));
  }
}

TEST(Histogram, RefusesWhatItCannotCount) {
  cv::Mat const image = cv::Mat::zeros(4, 4, CV_8UC1);
  auto const with = [&](auto change) {
    HistogramSettings settings;
    change(settings);
    calcHistogram(image, settings);
  };
  expectError([] { calcHistogram(cv::Mat()); }, "empty");
  expectError([&] { with([](auto& s) { s.bins = -1; }); }, "not -1");
  expectError([&] { with([](auto& s) { s.mask = cv::Mat::ones(3, 4, CV_8UC1); }); }, "mask");
  expectError([&] { with([](auto& s) { s.low = s.high = 5.0; }); }, "5.0");
  expectError([&] { calcHistogram(image).percentile(0, 1.5); }, "1.5");
  expectError([&] { calcHistogram(image).cumulative(1); }, "no channel 1");
}

} // namespace
} // namespace vorn::mv
