// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/measure/raster_font.hpp>

#include "support/expect_error.hpp"
#include "support/read_text.hpp"

namespace vorn::mv {
namespace {

using test::expectError;
using test::readLine;

constexpr FontSize sizes[] = {FontSize::Small, FontSize::Medium, FontSize::Large};

bool areEqual(cv::Mat const& a, cv::Mat const& b) {
  return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0;
}

std::vector<char32_t> characters() {
  std::vector<char32_t> all;
  for (char32_t c = 0x21; c <= 0xFF; ++c) {
    if (RasterFont::has(c) && c != 0xA0) {
      all.push_back(c);
    }
  }
  return all;
}

TEST(RasterFont, EveryCharacterHasInkOfItsOwn) {
  constexpr std::size_t inkCharacters = 94 + 95;
  EXPECT_EQ(characters().size(), inkCharacters);
  for (FontSize const size : sizes) {
    RasterFont const font(size);
    cv::Mat_<uchar> const box = font.glyph(0x4E2D);
    for (char32_t const a : characters()) {
      cv::Mat_<uchar> const glyph = font.glyph(a);
      ASSERT_GT(cv::countNonZero(glyph), 0) << static_cast<unsigned>(a);
      EXPECT_FALSE(areEqual(glyph, box)) << static_cast<unsigned>(a);
      for (char32_t const b : characters()) {
        bool const isSameByUse = (a == '-' && b == 0xAD) || (a == 0xAD && b == '-'); // the soft hyphen is one
        if (a != b && !isSameByUse) {
          EXPECT_FALSE(areEqual(glyph, font.glyph(b)))
              << static_cast<unsigned>(a) << ' ' << static_cast<unsigned>(b);
        }
      }
    }
  }
}

TEST(RasterFont, LettersStandOnTheBaselineAtTheHeightOfCapitals) {
  for (FontSize const size : sizes) {
    RasterFont const font(size);
    for (char const c : std::string("ABCDEFGHIKLMNOPRSTUVWXYZ0123456789")) {
      cv::Rect const ink = cv::boundingRect(font.glyph(static_cast<unsigned char>(c)));
      EXPECT_EQ(ink.br().y, font.ascent()) << c;
      EXPECT_EQ(ink.height, font.capHeight()) << c;
    }
    for (char const c : std::string("AHIMOTUVWXYimovwx08!:=+_|")) {
      if (c == 'm' || c == '0' || c == 'i' || c == 'I') {
        continue; // not symmetric on purpose, or too narrow to tell
      }
      cv::Mat_<uchar> const glyph = font.glyph(static_cast<unsigned char>(c));
      cv::Mat mirrored;
      cv::flip(glyph, mirrored, 1);
      EXPECT_TRUE(areEqual(glyph, mirrored)) << c;
    }
    EXPECT_EQ(font.glyph('1').cols, font.glyph('8').cols) << "numbers stand in columns";
    int const accented = cv::countNonZero(font.glyph(0xC4).rowRange(0, font.ascent() - font.capHeight() - 1));
    EXPECT_GT(accented, 0) << "the dots of a capital stand above it";
  }
}

TEST(RasterFont, TextIsReadBack) {
  std::string const all =
      "!\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~";
  std::string const words = "RMS 0.0147 px at (12, 34)";
  for (FontSize const size : sizes) {
    for (int const scale : {1, 3}) {
      RasterFont const font(size, scale);
      EXPECT_EQ(readLine(font.render(all), font), all);
      EXPECT_EQ(readLine(font.render(words), font), words);
    }
  }
}

TEST(RasterFont, MeasuresWhatItDraws) {
  RasterFont const font(FontSize::Medium, 2);
  std::string const text = "two\nlines";
  TextExtent const extent = font.measure(text);
  EXPECT_EQ(extent.height, 2 * font.lineHeight());
  EXPECT_EQ(extent.width, font.measure("lines").width);
  EXPECT_EQ(font.render(text).size(), cv::Size(extent.width, extent.height));
  EXPECT_EQ(readLine(font.render(text).rowRange(font.lineHeight(), extent.height), font), "lines");
  EXPECT_EQ(font.measure("").width, 0);
  EXPECT_EQ(font.measure("").height, 0);

  // Aligned by its lower right corner, a text's ink ends where its box does.
  cv::Mat picture = cv::Mat::zeros(200, 300, CV_8UC1);
  TextStyle style;
  style.across = TextAcross::Right;
  style.down = TextDown::Bottom;
  font.draw(picture, "H", {150, 100}, style);
  cv::Rect const ink = cv::boundingRect(picture);
  EXPECT_EQ(ink.br().x, 150);
  EXPECT_EQ(ink.br().y, 100 - font.lineHeight() + font.ascent());
  style.down = TextDown::Baseline;
  picture.setTo(0);
  font.draw(picture, "H", {150, 100}, style);
  EXPECT_EQ(cv::boundingRect(picture).br().y, 100);
}

TEST(RasterFont, DrawsIntoAnyDepthWithAnOutline) {
  RasterFont const font;
  TextStyle style;
  style.color = {1000, 2000, 3000};
  style.hasOutline = true;
  style.outline = {7, 8, 9};
  cv::Mat picture(60, 60, CV_16UC3, cv::Scalar(100, 100, 100));
  font.draw(picture, "I", {20, 20}, style);
  cv::Rect const ink = cv::boundingRect(font.glyph('I')) + cv::Point(20, 20);
  EXPECT_EQ(picture.at<cv::Vec3w>(ink.tl()), cv::Vec3w(1000, 2000, 3000));
  EXPECT_EQ(picture.at<cv::Vec3w>(ink.tl() - cv::Point(1, 1)), cv::Vec3w(7, 8, 9));
  EXPECT_EQ(picture.at<cv::Vec3w>(ink.tl() - cv::Point(2, 2)), cv::Vec3w(100, 100, 100));
  cv::Mat real(60, 60, CV_32FC1, cv::Scalar(0.25));
  style.color = cv::Scalar(0.75);
  font.draw(real, "I", {20, 20}, style);
  EXPECT_EQ(real.at<float>(ink.tl()), 0.75F);
}

TEST(RasterFont, WhatLiesOutsideIsLeftOut) {
  RasterFont const font(FontSize::Large);
  cv::Mat whole = cv::Mat::zeros(100, 400, CV_8UC1);
  font.draw(whole, "Cut here", {100, 40});
  cv::Mat part = cv::Mat::zeros(20, 50, CV_8UC1);
  font.draw(part, "Cut here", {-10, -8});
  EXPECT_TRUE(areEqual(part, whole(cv::Rect(110, 48, 50, 20))));
  font.draw(part, "Cut here", {2000000000, -2000000000});
  EXPECT_TRUE(areEqual(part, whole(cv::Rect(110, 48, 50, 20))));
}

TEST(RasterFont, CountsWhatItHasNoGlyphFor) {
  RasterFont const font;
  EXPECT_EQ(font.measure("5 \xC2\xB5m \xC3\x9F").missing, 0U);
  EXPECT_EQ(font.measure("\xE4\xB8\xAD\xE6\x96\x87").missing, 2U) << "two letters of another script";
  EXPECT_EQ(font.measure("a\xFF\xC3").missing, 2U) << "bytes that are no UTF-8";
  EXPECT_EQ(font.measure("\t\x01").missing, 2U);
  EXPECT_TRUE(areEqual(font.render("\xE4\xB8\xAD"), font.glyph(0x4E2D)));
  EXPECT_EQ(cv::boundingRect(font.glyph(0x4E2D)).height, font.capHeight()) << "a box";
}

TEST(RasterFont, RefusesScalesAndPicturesThatItCannotDrawInto) {
  expectError([] { RasterFont(FontSize::Small, 0); }, "1 to 64, not 0");
  expectError([] { RasterFont(FontSize::Small, 65); }, "65");
  cv::Mat empty;
  expectError([&] { RasterFont().draw(empty, "a", {}); }, "not empty");
}

} // namespace
} // namespace vorn::mv
