// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "support/expect_error.hpp"
#include "support/temporary_folder.hpp"
#include "tools/files/image_files.hpp"

namespace vorn::tools {
namespace {

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
