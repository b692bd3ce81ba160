// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/// ChArUco boards at the tool, which loads their library by itself: drawn, found in photographs, and
/// calibrated with.
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"

namespace vorn::tools {
namespace {

namespace fs = std::filesystem;

constexpr double dpi = 127; // five pixels a millimetre
constexpr double focalLength = 1100;
cv::Size const imageSize(960, 720);

/// A photograph of a flat picture by a camera without a lens: the picture's middle in the image's middle,
/// turned about the picture's axes by two angles in degrees.
cv::Mat photograph(cv::Mat const& picture, double tiltX, double tiltY) {
  double const rad = CV_PI / 180;
  cv::Matx33d const aboutX(1, 0, 0, 0, std::cos(tiltX * rad), -std::sin(tiltX * rad), 0,
                           std::sin(tiltX * rad), std::cos(tiltX * rad));
  cv::Matx33d const aboutY(std::cos(tiltY * rad), 0, std::sin(tiltY * rad), 0, 1, 0, -std::sin(tiltY * rad),
                           0, std::cos(tiltY * rad));
  cv::Matx33d const r = aboutX * aboutY;
  double const distance = 1.25 * picture.cols; // pixels of the picture
  cv::Matx33d const k(focalLength, 0, 479.5, 0, focalLength, 359.5, 0, 0, 1);
  cv::Matx33d const onPlane(1, 0, -0.5 * (picture.cols - 1), 0, 1, -0.5 * (picture.rows - 1), 0, 0, 1);
  cv::Matx33d const pose(r(0, 0), r(0, 1), 0, r(1, 0), r(1, 1), 0, r(2, 0), r(2, 1), distance);
  constexpr int samples = 4;
  cv::Matx33d const fine(samples, 0, 0.5 * (samples - 1), 0, samples, 0.5 * (samples - 1), 0, 0, 1);
  cv::Mat large;
  cv::warpPerspective(picture, large, cv::Mat(fine * k * pose * onPlane), imageSize * samples,
                      cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar(255));
  cv::Mat image;
  cv::resize(large, image, imageSize, 0, 0, cv::INTER_AREA);
  return image;
}

class CharucoTool : public testing::Test {
protected:
  std::string path(std::string const& name) const { return (folder_.path() / name).string(); }

  test::TemporaryFolder folder_;
};

TEST_F(CharucoTool, DrawsFindsAndCalibrates) {
  auto const drawn = test::run({"target", path("board.png"), "--charuco", "11x8", "--pitch", "12", "--dpi",
                                std::to_string(dpi), "--json"});
  ASSERT_EQ(drawn.status, 0) << drawn.errors;
  EXPECT_EQ(nlohmann::json::parse(drawn.output)["squares"], nlohmann::json({11, 8}));
  ASSERT_EQ(test::run({"target", path("page.svg"), "--charuco", "11x8", "--pitch", "12"}).status, 0);
  cv::Mat const picture = readGrayImage(path("board.png"));
  fs::create_directory(path("views"));
  // Turned about x and y to both sides, so that focal length and centre are determined.
  std::vector<cv::Point2d> const tilts = {{0, 0}, {30, 0}, {-30, 0}, {0, 35}, {0, -35}, {25, 25}, {-25, -25}};
  for (std::size_t i = 0; i < tilts.size(); ++i) {
    cv::Mat image = photograph(picture, tilts[i].x, tilts[i].y);
    if (i % 2 == 1) {
      image.colRange(0, 400).setTo(90); // a part of the board will do
    }
    writeImage(path("views/photo_" + std::to_string(i) + ".png"), image);
  }
  auto const found =
      test::run({"detect", path("views/photo_0.png"), "--target", path("board.json"), "-o", "-"});
  ASSERT_EQ(found.status, 0) << found.errors;
  EXPECT_EQ(nlohmann::json::parse(found.output)["images"][0]["count"], 70);
  auto const byOptions =
      test::run({"detect", path("views/photo_0.png"), "--kind", "charuco", "--size", "10x7", "--pitch", "12",
                 "--marker-size", "9", "--dictionary", "DICT_5X5_100", "-o", "-"});
  ASSERT_EQ(byOptions.status, 0) << byOptions.errors;
  EXPECT_EQ(nlohmann::json::parse(byOptions.output)["images"], nlohmann::json::parse(found.output)["images"]);
  auto const calibrated = test::run(
      {"calibrate", path("views"), "--camera", "--target", path("board.json"), "--out", path("camera.json")});
  ASSERT_EQ(calibrated.status, 0) << calibrated.errors;
  nlohmann::json const camera = readJsonFile(path("camera.json"));
  auto const k = camera["K"]["data"].get<std::vector<double>>();
  EXPECT_NEAR(k[0], focalLength, 0.001 * focalLength) << camera.dump();
  EXPECT_NEAR(k[4], focalLength, 0.001 * focalLength);
  EXPECT_NEAR(k[2], 479.5, 1);
  EXPECT_NEAR(k[5], 359.5, 1);
}

TEST_F(CharucoTool, RefusesWhatMakesNoBoard) {
  auto const expectError = [&](std::vector<std::string> const& arguments, std::string const& part) {
    auto const outcome = test::run(arguments);
    EXPECT_NE(outcome.status, 0);
    EXPECT_NE(outcome.errors.find(part), std::string::npos) << outcome.errors;
  };
  expectError({"target", path("a.png"), "--charuco", "11x8", "--marker-size", "20"}, "below the squares'");
  expectError({"target", path("a.png"), "--charuco", "30x30", "--dictionary", "DICT_4X4_50"}, "ends at 49");
  expectError({"target", path("a.png"), "--charuco", "11x8", "--dark-dots"}, "--dark-dots");
  writeImage(path("b.png"), cv::Mat(48, 64, CV_8U, cv::Scalar(9)));
  expectError({"detect", path("b.png"), "--size", "9x7", "--kind", "circles", "--marker-size", "3"},
              "belong to --kind charuco");
  expectError({"detect", path("b.png"), "--kind", "charuco", "--size", "9x7", "--marker-size", "3"},
              "--pitch");
  EXPECT_FALSE(fs::exists(path("a.png")));
}

} // namespace
} // namespace vorn::tools
