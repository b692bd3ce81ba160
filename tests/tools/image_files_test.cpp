// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "support/expect_error.hpp"
#include "support/temporary_folder.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/named_images.hpp"
#include "tools/files/tiff_bytes.hpp"
#include "tools/report/warning.hpp"

namespace vorn::tools {
namespace {

/// A TIFF file of 4 x 2 pixels of so many bits, packed one behind the other, and a photometric
/// interpretation.
std::string packedTiff(unsigned bits, unsigned interpretation, std::vector<unsigned> const& values) {
  std::string data;
  auto const add = [&](unsigned value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
      data += static_cast<char>(value >> (8 * i) & 0xffU);
    }
  };
  std::string pixels;
  for (std::size_t row = 0; row < 2; ++row) {
    std::uint64_t packed = 0;
    for (std::size_t i = 0; i < 4; ++i) {
      packed = packed << bits | values[4 * row + i];
    }
    for (int shift = static_cast<int>(4 * bits) - 8; shift >= 0; shift -= 8) {
      pixels += static_cast<char>(packed >> shift & 0xffU);
    }
  }
  data = std::string("II*\0", 4);
  add(8, 4);
  std::vector<std::array<unsigned, 2>> const tags{{256, 4},
                                                  {257, 2},
                                                  {258, bits},
                                                  {259, 1},
                                                  {262, interpretation},
                                                  {273, 8 + 2 + 9 * 12 + 4},
                                                  {277, 1},
                                                  {278, 2},
                                                  {279, static_cast<unsigned>(pixels.size())}};
  add(static_cast<unsigned>(tags.size()), 2);
  for (auto const& [tag, value] : tags) {
    add(tag, 2);
    add(4, 2);
    add(1, 4);
    add(value, 4);
  }
  add(0, 4);
  return data + pixels;
}

TEST(ImageFiles, ReadsTheDepthsOfRealCameras) {
  test::TemporaryFolder const folder;
  auto const store = [&](char const* name, std::string const& bytes) {
    std::ofstream(folder / name, std::ios::binary) << bytes;
    return (folder / name).string();
  };
  std::vector<unsigned> const values{0, 1, 100, 1023, 1000, 512, 7, 900};
  // 10 and 12 bits come in the upper bits of 16.
  for (unsigned const bits : {10U, 12U}) {
    cv::Mat const image = readMeasuredImage(store("packed.tiff", packedTiff(bits, 1, values)));
    ASSERT_EQ(image.type(), CV_16UC1);
    for (int i = 0; i < 8; ++i) {
      EXPECT_EQ(image.at<ushort>(i / 4, i % 4), values[static_cast<std::size_t>(i)] << (16 - bits)) << bits;
    }
  }
  std::string pgm = "P5\n4 2\n4095\n";
  for (unsigned const value : values) {
    pgm += static_cast<char>(value >> 8U);
    pgm += static_cast<char>(value & 0xffU);
  }
  cv::Mat const image = readMeasuredImage(store("a.pgm", pgm));
  ASSERT_EQ(image.type(), CV_16UC1);
  EXPECT_EQ(image.at<ushort>(0, 3), 1023);
  constexpr unsigned mosaic = 32803;
  test::expectError([&] { readMeasuredImage(store("raw.tiff", packedTiff(12, mosaic, values))); },
                    "raw.tiff holds the raw pixels of a colour sensor");
}

/// A file of two pages, the second of which may be a smaller copy of the first, as cameras add.
/// @param isWide with addresses of 64 bits, as stacks of many images have
std::string pagedTiff(bool isCopy, bool isWide = false) {
  constexpr unsigned tags = 9;
  int const address = isWide ? 8 : 4;
  unsigned const directory = isWide ? 8 + 20 * tags + 8 : 2 + 12 * tags + 4;
  unsigned const pixels = isWide ? 16 : 8;
  unsigned const first = pixels + 8;
  std::string data = isWide ? std::string("II+\0\x08\0\0\0", 8) : std::string("II*\0", 4);
  auto const add = [&](unsigned value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
      data += static_cast<char>(i < 4 ? value >> (8 * i) & 0xffU : 0);
    }
  };
  add(first, address);
  data += "12345678";
  for (unsigned page = 0; page < 2; ++page) {
    add(tags, isWide ? 8 : 2);
    unsigned const kind = isCopy ? page : 0;
    unsigned const values[tags][2] = {{254, kind}, {256, 4},      {257, 2}, {258, 8}, {259, 1},
                                      {262, 1},    {273, pixels}, {278, 2}, {279, 8}};
    for (auto const& [tag, value] : values) {
      add(tag, 2);
      add(4, 2);
      add(1, address);
      add(value, address);
    }
    add(page == 0 ? first + directory : 0, address);
  }
  return data;
}

/// A directory of 65535 entries, nearly all beyond the end, whose next one it is itself: without an end.
TEST(TiffBytes, DirectoriesWithoutAnEndAreNoPages) {
  std::vector<unsigned char> const small{'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0, 0, 0, 0,
                                         0,   0,   0,  0, 0, 0, 0, 0, 0, 8, 0, 0, 0};
  EXPECT_EQ(pageCount(small), 1U);
  std::vector<unsigned char> large(8 + 2 + 12 * 65535 + 4, 0);
  std::copy(small.begin(), small.begin() + 8, large.begin());
  large[8] = large[9] = 255;
  large[large.size() - 4] = 8;
  EXPECT_EQ(pageCount(large), 1U);
  large[8] = 254; // the next one is read in front of the place that leads back
  EXPECT_EQ(pageCount(large), 1U);
}

TEST(ImageFiles, PagesThatAreLeftOutAreSaid) {
  test::TemporaryFolder const folder;
  std::string const path = folder / "paged.tiff";
  auto const warningsOf = [&](std::string const& bytes, auto const& read) {
    std::ofstream(path, std::ios::binary) << bytes;
    takeWarnings();
    testing::internal::CaptureStderr();
    read(path);
    testing::internal::GetCapturedStderr();
    return takeWarnings();
  };
  for (cv::Mat (*const read)(std::string const&) : {readGrayImage, readImage, readMeasuredImage}) {
    for (bool const isWide : {false, true}) {
      std::vector<std::string> const warnings = warningsOf(pagedTiff(false, isWide), read);
      ASSERT_EQ(warnings.size(), 1U) << isWide;
      EXPECT_NE(warnings[0].find("paged.tiff has 2 pages"), std::string::npos) << warnings[0];
      EXPECT_TRUE(warningsOf(pagedTiff(true, isWide), read).empty());
    }
  }
  auto const readPages = [](std::string const& file) { EXPECT_EQ(readNamedImages({file}).size(), 2U); };
  EXPECT_TRUE(warningsOf(pagedTiff(false), readPages).empty());
  EXPECT_TRUE(warningsOf(pagedTiff(false, true), readPages).empty());
  std::string const bytes = pagedTiff(false);
  std::ofstream(path, std::ios::binary) << bytes.substr(0, bytes.size() - 100);
  test::expectError([&] { readNamedImages({path}); }, "of its 2 pages only 1");
}

TEST(ImageFiles, TellsAMosaicFromFringes) {
  cv::Mat_<ushort> mosaic(64, 64);
  cv::Mat_<ushort> fringes(64, 64);
  cv::RNG random(4);
  for (int y = 0; y < 64; ++y) {
    for (int x = 0; x < 64; ++x) {
      int const light = 1000 + 10 * x + random.uniform(-20, 20);
      bool const isGreen = (x + y) % 2 == 1;
      mosaic(y, x) = static_cast<ushort>(isGreen ? light : x % 2 == 0 ? light * 7 / 10 : light * 8 / 10);
      fringes(y, x) = static_cast<ushort>(light + (x % 2 == 0 ? 500 : -500));
    }
  }
  EXPECT_TRUE(isLikeMosaic(mosaic));
  EXPECT_TRUE(isLikeMosaic(mosaic.colRange(1, 64)));
  EXPECT_FALSE(isLikeMosaic(fringes));
  EXPECT_FALSE(isLikeMosaic(fringes.t()));
  EXPECT_FALSE(isLikeMosaic(cv::Mat::zeros(64, 64, CV_8U)));
}

using test::expectError;

cv::Mat const picture(6, 8, CV_8UC1, cv::Scalar(77));

TEST(ReadSequence, ReadsInNumericalOrderAndLeavesOtherFilesAlone) {
  test::TemporaryFolder const folder;
  constexpr int count = 12;
  for (int i = 0; i < count; ++i) {
    writeImage(sequencePath(folder.path(), "columns", i), cv::Mat(picture + i));
  }
  for (char const* other : {"rows_00.png", "columns_x.png", "columns_.png", "columns_1.txt", "white.png"}) {
    std::ofstream(folder / other) << "no picture";
  }
  std::vector<cv::Mat> const images = readSequence(folder.path(), "columns");
  ASSERT_EQ(images.size(), static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    EXPECT_EQ(images[static_cast<std::size_t>(i)].at<uchar>(3, 3), 77 + i);
  }
}

TEST(ReadSequence, NamesWhatIsWrong) {
  test::TemporaryFolder const folder;
  auto const read = [&] { readSequence(folder.path(), "columns"); };
  expectError([&] { readSequence(folder / "absent", "columns"); }, "no folder");
  writeImage(folder / "columns_00.png", picture);
  writeImage(folder / "columns_02.png", picture);
  expectError(read, "columns_01");
  writeImage(folder / "columns_01.png", cv::Mat(picture.t()));
  expectError(read, "6 x 8");
  std::ofstream(folder / "columns_01.png") << "not a picture";
  expectError(read, "columns_01.png");
  std::ofstream(folder / "columns_01.png", std::ios::trunc).flush();
  expectError(read, "columns_01.png");
  writeImage(folder / "columns_01.png", picture);
  EXPECT_EQ(readSequence(folder.path(), "columns").size(), 3U);
  writeImage(folder / "columns_1.bmp", picture);
  expectError(read, "same number");
}

TEST(WriteImage, LeavesTheOldFileWhenItFails) {
  test::TemporaryFolder const folder;
  std::filesystem::path const path = folder / "kept.png";
  writeImage(path, picture);
  auto const size = std::filesystem::file_size(path);
  EXPECT_THROW(writeImage(path, cv::Mat(4, 4, CV_32FC(7))), Exception);
  EXPECT_THROW(writeImage(folder / "a.nothing", picture), Exception);
  EXPECT_THROW(writeImage(folder / "absent/a.png", picture), Exception);
  EXPECT_EQ(std::filesystem::file_size(path), size);
  auto const entries = std::filesystem::directory_iterator(folder.path());
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
}

} // namespace
} // namespace vorn::tools
