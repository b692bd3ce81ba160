// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/core/json_file.hpp>
#include <vorn/mv/calib/calib_pattern_detector.hpp>
#include <vorn/mv/calib/detect_target.hpp>
#include <vorn/mv/core/library.hpp>

#include "support/expect_error.hpp"
#include "support/temporary_folder.hpp"
#include "tools/calibration/target_drawing.hpp"
#include "tools/commands/size_option.hpp"
#include "tools/files/image_files.hpp"

namespace vorn::test {
namespace {

using tools::TargetDrawing;

/// The detector sees in the picture what was to be drawn, to scale: an independent reading of both
/// polarities.
TEST(TargetDrawing, PictureIsToScale) {
  mv::Library::init();
  for (bool const hasDarkDots : {false, true}) {
    TargetDrawing target;
    target.pitch = 12.5;
    target.minIndex = {-4, -3};
    target.maxIndex = {6, 5};
    target.resolution = 80;
    target.page = {297, 210};
    target.hasDarkDots = hasDarkDots;
    cv::Mat const picture = tools::targetPicture(target);
    EXPECT_EQ(picture.size(), cv::Size(cvRound(297 * 80 / 25.4), cvRound(210 * 80 / 25.4)));
    mv::CalibPatternDetector detector;
    detector["PatternDim"] = target.pitch;
    detector["PatternType"] = hasDarkDots ? 1 : 0;
    auto const result = detector.detect(picture);
    ASSERT_EQ(result.count(), 11 * 9);
    ASSERT_TRUE(result.isOriginMarked());
    cv::Point2f const first = result.getKeyPoint(0).imgPnt;
    cv::Point2f const firstOnTarget = result.getKeyPoint(0).objPnt;
    EXPECT_EQ(firstOnTarget, cv::Point2f(-50, -37.5F));
    // Where the drawing in millimetres has it; pixels have their centres half a pixel inside their edges.
    std::string const svg = tools::targetSvg(target);
    std::size_t const at = svg.find("<circle");
    ASSERT_NE(at, std::string::npos);
    cv::Point2d inMm;
    ASSERT_EQ(std::sscanf(svg.c_str() + at, "<circle cx=\"%lf\" cy=\"%lf\"", &inMm.x, &inMm.y), 2);
    EXPECT_LT(cv::norm(cv::Point2d(first) + cv::Point2d(0.5, 0.5) - inMm * (80 / 25.4)), 0.05);
    constexpr double ragged =
        0.02; // pixels: drawn edges are straight within a pixel, and grey levels are whole
    for (mv::CalibKeyPoint const& point : result.getKeyPoints()) {
      cv::Point2d const expected = cv::Point2d(point.objPnt - firstOnTarget) * (80 / 25.4);
      EXPECT_LT(cv::norm(cv::Point2d(point.imgPnt - first) - expected), ragged);
    }
  }
}

TEST(TargetDrawing, FilesHoldTheScale) {
  TemporaryFolder const folder;
  std::string const path = (folder.path() / "target").string();
  TargetDrawing target;
  target.resolution = 60;
  tools::writeTarget(path, target);
  std::ifstream svgFile(path + ".svg");
  std::string const svg((std::istreambuf_iterator<char>(svgFile)), std::istreambuf_iterator<char>());
  EXPECT_NE(svg.find("width=\"330mm\" height=\"246mm\" viewBox=\"0 0 330 246\""), std::string::npos);
  EXPECT_NE(svg.find("pitch 15 mm"), std::string::npos);
  std::size_t circles = 0;
  for (std::size_t at = svg.find("<circle"); at != std::string::npos; at = svg.find("<circle", at + 1)) {
    ++circles;
  }
  EXPECT_EQ(circles, 315U);
  cv::Mat const picture = tools::readGrayImage(path + ".png"); // its checksums are right, or it is not read
  EXPECT_EQ(cv::norm(picture, tools::targetPicture(target), cv::NORM_INF), 0);
  // The description is all that a search takes.
  auto const found = mv::detectTarget(picture, load<mv::TargetDescription>(path + ".json"));
  EXPECT_EQ(found.keyPoints.size(), 315U) << found.reason;
  EXPECT_TRUE(found.isOriginMarked);
  std::ifstream pngFile(path + ".png", std::ios::binary);
  std::string const png((std::istreambuf_iterator<char>(pngFile)), std::istreambuf_iterator<char>());
  // 60 dpi are 2362 = 0x93a pixels a metre.
  EXPECT_NE(png.find(std::string("pHYs\0\0\x09\x3a\0\0\x09\x3a\x01", 13)), std::string::npos);
}

TEST(TargetDrawing, RefusesWhatCannotBePrinted) {
  TargetDrawing target;
  target.page = {297, 210};
  expectError([&] { tools::targetPicture(target); }, "330 x 246 mm, the page has 297 x 210");
  target.page = {};
  target.resolution = 4800;
  expectError([&] { tools::targetPicture(target); }, "lower the resolution");
  target.pitch = 0;
  expectError([&] { tools::targetSvg(target); }, "needs a pitch");
  expectError([] { tools::writeTarget("target.pdf", TargetDrawing()); }, "target.pdf");
  EXPECT_EQ(tools::parseSize("640x400", "--projector"), cv::Size2d(640, 400));
  for (char const* text : {"", "640", "640x", "x400", "640x400mm", "640x-1", "0x5"}) {
    expectError([&] { tools::parseSize(text, "--projector"); }, "is not a size");
  }
}

} // namespace
} // namespace vorn::test
