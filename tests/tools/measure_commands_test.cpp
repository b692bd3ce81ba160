// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <sim/demo.hpp>
#include <sim/folder.hpp>

#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/files/image_files.hpp"
#include "tools/scan/exposure.hpp"

namespace vorn::tools {
namespace {

namespace fs = std::filesystem;

using test::run;
using test::ToolOutcome;

class MeasureCommands : public testing::Test {
protected:
  std::string path(std::string const& name) const { return (folder_.path() / name).string(); }

  std::string save(std::string const& name, cv::Mat const& image) const {
    writeImage(path(name), image);
    return path(name);
  }

  test::TemporaryFolder folder_;
};

cv::Mat discs(double blur) {
  cv::Mat image(200, 260, CV_8UC1, cv::Scalar(60));
  for (int i = 0; i < 30; ++i) {
    cv::circle(image, {20 + (i % 6) * 44, 20 + (i / 6) * 40}, 12, cv::Scalar(180), cv::FILLED, cv::LINE_AA);
  }
  cv::GaussianBlur(image, image, {}, blur);
  return image;
}

TEST_F(MeasureCommands, FocusNamesTheSharpest) {
  std::vector<std::string> arguments{"focus", "--json", "--map", path("map.png")};
  for (double const blur : {2.0, 0.6, 1.2}) {
    arguments.push_back(save("at" + std::to_string(blur) + ".png", discs(blur)));
  }
  ToolOutcome const outcome = run(arguments);
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  auto const json = nlohmann::json::parse(outcome.output);
  EXPECT_EQ(json["sharpest"], arguments[5]);
  EXPECT_NEAR(json["images"][0]["edgeWidth"].get<double>(), 2.0, 0.3);
  EXPECT_GT(json["images"][1]["tenengrad"], json["images"][2]["tenengrad"]);
  EXPECT_FALSE(cv::imread(path("map.png")).empty());
}

TEST_F(MeasureCommands, HistogramCountsAndDraws) {
  cv::Mat image(50, 40, CV_8UC1, cv::Scalar(7));
  image.rowRange(0, 10).setTo(200);
  ToolOutcome const outcome = run({"histogram", save("a.png", image), "--json", "--plot", path("plot.svg")});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  auto const channel = nlohmann::json::parse(outcome.output)["channels"][0];
  EXPECT_EQ(channel["counts"][7], 1600);
  EXPECT_EQ(channel["counts"][200], 400);
  EXPECT_TRUE(std::filesystem::exists(path("plot.svg")));
}

TEST_F(MeasureCommands, ProfileFindsAnEdge) {
  cv::Mat image(50, 80, CV_8UC1, cv::Scalar(30));
  image.colRange(40, 80).setTo(200);
  ToolOutcome const outcome = run({"profile", save("a.png", image), "5", "20", "75", "20", "--json",
                                   "--overlay", path("overlay.png"), "--plot", path("plot.png")});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  auto const edges = nlohmann::json::parse(outcome.output)["edges"];
  ASSERT_EQ(edges.size(), 1U);
  EXPECT_NEAR(edges[0]["point"][0].get<double>(), 39.5, 0.05);
  EXPECT_EQ(run({"profile", path("a.png"), "5", "20", "75"}).status, 1) << "a point lacks its y";
}

/// Four fringe images of an amplitude and noise, grey values of 255; the last columns clipped, the first ones
/// dark.
/// @param white of the camera: above 255 the images have 16 bits
void saveFringes(std::string const& folder, double amplitude, double noise, int white = 255) {
  for (int k = 0; k < 4; ++k) {
    cv::Mat_<float> image(120, 200);
    for (int y = 0; y < image.rows; ++y) {
      for (int x = 0; x < image.cols; ++x) {
        double const strength = x < 60 ? 0.0 : 1.0;
        double const value = 100.0 + strength * amplitude * std::cos(0.4 * x - 0.5 * CV_PI * k);
        image(y, x) = static_cast<float>((x >= 180 ? 300.0 : value) + cv::theRNG().gaussian(noise));
      }
    }
    cv::Mat stored = cv::min(image * (white / 255.0), white);
    stored.convertTo(stored, white > 255 ? CV_16U : CV_8U);
    writeImage(folder + "/columns_0" + std::to_string(k) + ".png", stored);
  }
}

TEST_F(MeasureCommands, ExposureTellsWhatIsClippedDarkAndNoisy) {
  saveFringes(folder_.path().string(), 50.0, 2.0);
  ToolOutcome const outcome =
      run({"exposure", folder_.path().string(), "--json", "--picture", path("where.png")});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  auto const columns = nlohmann::json::parse(outcome.output)["sequences"][0];
  EXPECT_NEAR(columns["clipped"].get<double>(), 0.1, 1e-9);
  EXPECT_NEAR(columns["dark"].get<double>(), 0.3, 0.01);
  EXPECT_NEAR(columns["noise"].get<double>(), 2.0, 0.1);
  EXPECT_NEAR(columns["amplitude"].get<double>(), 50.0, 0.5);
  EXPECT_NEAR(columns["sigma"].get<double>(), 2.0 / (std::sqrt(2.0) * 50.0) * 4.0 / (2.0 * CV_PI), 0.002);
  EXPECT_FALSE(columns["advice"].empty());
  cv::Mat const picture = cv::imread(path("where.png"));
  cv::Vec3b const clipped = picture.at<cv::Vec3b>(picture.rows - 20, 195);
  EXPECT_GT(clipped[2], 200) << "clipped pixels are red";
  EXPECT_LT(clipped[0], 120);
}

TEST_F(MeasureCommands, ExposureOfDeepPicturesIsToldInTheSameGreyValues) {
  constexpr double noise = 0.15; // which 8 bits do not show
  saveFringes(folder_.path().string(), 50.0, noise, 4095);
  // Another picture of the camera, so dim that by itself it would pass for one of 10 bits.
  save("target.png", cv::Mat(120, 200, CV_16UC1, cv::Scalar(900)));
  ToolOutcome const outcome = run({"exposure", folder_.path().string(), "--json"});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  auto const json = nlohmann::json::parse(outcome.output);
  EXPECT_EQ(json["whiteLevel"], 4095.0);
  auto const columns = json["sequences"][0];
  EXPECT_NEAR(columns["clipped"].get<double>(), 0.1, 1e-9);
  EXPECT_NEAR(columns["dark"].get<double>(), 0.3, 0.01);
  EXPECT_NEAR(columns["noise"].get<double>(), noise, 0.01);
  EXPECT_NEAR(columns["amplitude"].get<double>(), 50.0, 0.1);
  EXPECT_NEAR(json["sequences"][1]["bright"].get<double>(), 900.0 / 4095.0 * 255.0, 0.1);
  ToolOutcome const told = run({"exposure", folder_.path().string(), "--white-level", "4000"});
  EXPECT_NE(told.output.find("taken to have 4000"), std::string::npos) << told.output;
  fs::remove(path("target.png"));
  save("target.tiff", cv::Mat(120, 200, CV_32FC1, cv::Scalar(0.5)));
  EXPECT_NE(run({"exposure", folder_.path().string()}).errors.find("pictures of 8 or 16 bits"),
            std::string::npos);
}

TEST_F(MeasureCommands, ExposureSaysWhereAndForAnyPictures) {
  fs::create_directories(folder_.path() / "pose_00");
  saveFringes((folder_.path() / "pose_00").string(), 50.0, 2.0);
  cv::Mat bright = discs(0.7);
  bright(cv::Rect(0, 0, 60, 50)).setTo(255);
  save("pose_00/target.png", bright);
  ToolOutcome const outcome = run({"exposure", folder_.path().string(), "--json"});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  auto const sequences = nlohmann::json::parse(outcome.output)["sequences"];
  ASSERT_EQ(sequences.size(), 2U);
  auto const& columns = sequences[0];
  EXPECT_EQ(columns["name"], "pose_00/columns");
  EXPECT_NE(columns["advice"].dump().find("most upper right (29.9 %)"), std::string::npos)
      << columns["advice"];
  EXPECT_NEAR(columns["ninths"]["clipped"][2].get<double>(), 20.0 / 67.0, 0.01);
  EXPECT_NEAR(columns["ninths"]["dark"][3].get<double>(), 60.0 / 66.0, 0.02);
  auto const& target = sequences[1];
  EXPECT_EQ(target["name"], "pose_00/target");
  EXPECT_NEAR(target["clipped"].get<double>(), 60.0 * 50.0 / (260.0 * 200.0), 1e-9);
  EXPECT_TRUE(target["sigma"].is_null()) << "no fringes";
  EXPECT_NE(target["advice"].dump().find("upper left"), std::string::npos) << target["advice"];
  EXPECT_EQ(
      run({"exposure", (folder_.path() / "pose_00").string(), "--picture", path("pose_00/columns_02.png")})
          .status,
      1)
      << "a picture over an input";
}

TEST_F(MeasureCommands, NoiseOfPicturesIsToldFromTheirFinestDetail) {
  for (double const noise : {1.0, 3.0}) {
    cv::Mat_<float> image;
    discs(1.0).convertTo(image, CV_32F);
    for (float& value : image) {
      value += static_cast<float>(cv::theRNG().gaussian(noise));
    }
    cv::Mat eight;
    image.convertTo(eight, CV_8U);
    // Rounding adds a twelfth to the variance.
    double const expected = std::hypot(noise, std::sqrt(1.0 / 12.0));
    EXPECT_NEAR(exposureOfImages({eight}).noise, expected, 0.1 * noise);
    // A black ground has none, and says nothing of the rest; nor does a picture that is all black.
    cv::Mat wide;
    cv::copyMakeBorder(eight, wide, eight.rows, eight.rows, eight.cols, eight.cols, cv::BORDER_CONSTANT, 0);
    cv::Mat const black = cv::Mat::zeros(wide.size(), CV_8U);
    EXPECT_NEAR(exposureOfImages({wide, black}).noise, expected, 0.1 * noise);
    EXPECT_TRUE(std::isnan(exposureOfImages({black}).noise));
    // A speck without noise, on less than a hundredth of a picture, does not speak for all of them.
    cv::Mat speck = black.clone();
    speck(cv::Rect(40, 30, 20, 20)).setTo(90);
    EXPECT_NEAR(exposureOfImages({wide, speck}).noise, expected, 0.1 * noise);
    EXPECT_TRUE(std::isnan(exposureOfImages({speck}).noise));
  }
}

TEST_F(MeasureCommands, NoiseOfFringesIsThatOfTheLight) {
  constexpr double noise = 1.5;
  constexpr double amplitude = 30.0;
  constexpr double period = 8.0;
  cv::Size const size(240, 160);
  std::vector<cv::Mat> phases;
  for (int k = 0; k < 4; ++k) {
    cv::Mat_<uchar> image(size);
    for (int y = 0; y < size.height; ++y) {
      for (int x = 0; x < size.width; ++x) {
        bool const isLit = x < size.width / 3;
        double const fringe = std::sin(0.3 * x + k * CV_PI / 2.0);
        image(y, x) =
            cv::saturate_cast<uchar>(isLit ? 60.0 + amplitude * fringe + cv::theRNG().gaussian(noise) : 3.2);
      }
    }
    phases.push_back(image);
  }
  Exposure const exposure = exposureOfFringes(phases, period);
  double const expected = std::hypot(noise, std::sqrt(1.0 / 12.0)); // with rounding
  EXPECT_NEAR(exposure.noise, expected, 0.03 * expected);
  EXPECT_NEAR(exposure.sigma, expected / (std::sqrt(2.0) * amplitude) * period / (2.0 * CV_PI),
              0.05 * exposure.sigma);
  EXPECT_NEAR(exposure.dark.all, 2.0 / 3.0, 1e-3);
}

TEST_F(MeasureCommands, ExposureNamesAnImageOfOtherLight) {
  sim::Rig const rig = sim::demoRig(8);
  sim::FolderOptions options;
  options.truth = false;
  sim::writeScanFolder(path("lost"), rig, sim::demoScene(), options);
  std::string const image = path("lost/columns_02.png");
  writeImage(image, cv::Mat(0 * cv::imread(image, cv::IMREAD_UNCHANGED)));
  ToolOutcome const outcome = run({"exposure", path("lost")});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_NE(outcome.output.find("image 2 is black"), std::string::npos) << outcome.output;
  EXPECT_EQ(outcome.output.find("100 % dark"), std::string::npos) << outcome.output;
}

TEST_F(MeasureCommands, ExposureKnowsTooLittleAndTooMuchLight) {
  struct Case {
    double factor;
    char const* advice;
  };
  for (Case const& one : {Case{0.15, "lengthen"}, Case{4.0, "shorten"}}) {
    sim::Rig rig = sim::demoRig(8);
    rig.camera.sensor.exposure *= one.factor;
    sim::FolderOptions options;
    options.truth = false;
    std::string const folder = path(one.advice);
    sim::writeScanFolder(folder, rig, sim::demoScene(), options);
    ToolOutcome const outcome = run({"exposure", folder});
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_NE(outcome.output.find(one.advice), std::string::npos) << outcome.output;
  }
}

TEST_F(MeasureCommands, BadInputIsSaidAndNothingIsWritten) {
  EXPECT_EQ(run({"exposure", folder_.path().string()}).status, 1);
  EXPECT_EQ(run({"focus", path("none.png")}).status, 1);
  ToolOutcome const outcome = run({"histogram", save("a.png", discs(1.0)), "--plot", path("none/plot.png")});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.errors.find("none"), std::string::npos);
  EXPECT_TRUE(outcome.output.empty()) << "told before any work";
  EXPECT_EQ(run({"histogram", path("a.png"), "--plot", path("plot.txt")}).status, 1);
}

} // namespace
} // namespace vorn::tools
