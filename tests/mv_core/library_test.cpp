// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cstdint>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/system.hpp>
#include <vorn/mv/core/image.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/sl/lookup_tables.hpp>

namespace vorn::mv {
namespace {

// One test, since the process starts only once.
TEST(Library, StartsOnceAndSwitchesDebugOutput) {
  EXPECT_TRUE(Library::getEnableDebug());
  EXPECT_THROW(Library::assertValid(), Exception);
  EXPECT_TRUE(get_lut_atan2().empty());
  // Who passes the gate while the library starts finds it ready.
  std::size_t entriesFound = 0;
  std::thread early([&] {
    while (entriesFound == 0) {
      try {
        Library::assertValid();
        entriesFound = get_lut_bin2gray().size() + 1;
      } catch (Exception const&) {
        std::this_thread::yield();
      }
    }
  });
  std::thread other(Library::init);
  Library::init();
  other.join();
  early.join();
  EXPECT_EQ(entriesFound, 8193U);
  EXPECT_NO_THROW(Library::assertValid());
  EXPECT_TRUE(Library::getEnableDebug());
  float const* const table = get_lut_atan2()[0];
  System::set("EnableDebugMode", Variant(false));
  EXPECT_FALSE(Library::getEnableDebug());
  Library::start(false);
  EXPECT_FALSE(Library::getEnableDebug());
  Library::init();
  EXPECT_TRUE(Library::getEnableDebug());
  Library::start(false);
  EXPECT_EQ(get_lut_atan2()[0], table);
}

TEST(Image, ConvertsEveryOrderToTheSameColours) {
  constexpr int red = 250;
  constexpr int green = 100;
  constexpr int blue = 10;
  std::array<std::uint8_t, 4> const rgba{red, green, blue, 255};
  std::array<std::uint8_t, 4> const bgra{blue, green, red, 255};
  using Order = PixelFormat::Order;
  for (auto const& [order, data] : {std::pair(Order::RGB, rgba), std::pair(Order::RGBA, rgba),
                                    std::pair(Order::BGR, bgra), std::pair(Order::BGRA, bgra)}) {
    Image const image(data.data(), 1, 1, PixelFormat{order, 8});
    EXPECT_EQ(toBGRMat(image).at<cv::Vec3b>(0, 0), cv::Vec3b(blue, green, red));
    EXPECT_NEAR(toGrayMat(image).at<std::uint8_t>(0, 0), 0.299 * red + 0.587 * green + 0.114 * blue, 1.0);
  }
}

TEST(Image, KeepsItsRowsAndColumns) {
  std::vector<std::uint8_t> const bytes{1, 2, 3, 4, 5, 6};
  Image const image(bytes.data(), 3, 2, PixelFormat{PixelFormat::Order::Gray, 8});
  cv::Mat const expected = (cv::Mat_<std::uint8_t>(2, 3) << 1, 2, 3, 4, 5, 6);
  ASSERT_EQ(toGrayMat(image).size(), cv::Size(3, 2));
  EXPECT_EQ(cv::norm(toGrayMat(image), expected, cv::NORM_INF), 0);
  EXPECT_EQ(toBGRMat(image).size(), cv::Size(3, 2));
}

/// What a camera of 12 bits delivers in words is what a scan reads.
TEST(Image, AMatrixHasAllBitsOfItsChannels) {
  std::vector<std::uint16_t> words{0, 17, 4095, 65535};
  cv::Mat const deep = toMat(Image(words.data(), 2, 2, PixelFormat{PixelFormat::Order::Gray, 16}));
  ASSERT_EQ(deep.type(), CV_16UC1);
  words.assign(4, 1);
  cv::Mat const expected = (cv::Mat_<std::uint16_t>(2, 2) << 0, 17, 4095, 65535);
  EXPECT_EQ(cv::norm(deep, expected, cv::NORM_INF), 0);

  std::array<std::uint16_t, 4> const rgba{4000, 300, 2, 65535};
  cv::Mat const colour = toMat(Image(rgba.data(), 1, 1, PixelFormat{PixelFormat::Order::RGBA, 16}));
  ASSERT_EQ(colour.type(), CV_16UC3);
  EXPECT_EQ(colour.at<cv::Vec3w>(0, 0), cv::Vec3w(2, 300, 4000));
  std::array<std::uint8_t, 3> const bgr{1, 2, 3};
  cv::Mat const bytes = toMat(Image(bgr.data(), 1, 1, PixelFormat{PixelFormat::Order::BGR, 8}));
  ASSERT_EQ(bytes.type(), CV_8UC3);
  EXPECT_EQ(bytes.at<cv::Vec3b>(0, 0), cv::Vec3b(1, 2, 3));
  EXPECT_TRUE(toMat(Image()).empty());
}

TEST(Image, ScalesWordsAndOwnsItsPixels) {
  std::vector<std::uint16_t> words{0, 65535, 49151, 257};
  Image const image(words.data(), 2, 2, PixelFormat{PixelFormat::Order::Gray, 16});
  words.assign(4, 0);
  cv::Mat const gray = toGrayMat(image);
  EXPECT_EQ(gray.at<std::uint8_t>(0, 1), 255);
  EXPECT_EQ(gray.at<std::uint8_t>(1, 0), 191); // of 191.25; a 256th would be 192
  EXPECT_EQ(gray.at<std::uint8_t>(1, 1), 1);
  EXPECT_TRUE(toBGRMat(Image()).empty());
  EXPECT_THROW(Image(nullptr, 2, 2, PixelFormat{}), Exception);
  EXPECT_THROW(Image(words.data(), -1, 2, PixelFormat{}), Exception);
}

} // namespace
} // namespace vorn::mv
