// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <vorn/core/json_file.hpp>
#include <vorn/mv/calib/camera_model.hpp>

#include "sim/demo.hpp"
#include "sim/target_photo.hpp"
#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"

namespace vorn::tools {
namespace {

using test::run;
using test::ToolOutcome;

constexpr double focalPx = 700;
constexpr int pictureCount = 4;

/// Pictures of an unmarked plate of 11 x 8 dots, pitch 15 mm, by one camera.
std::vector<cv::Mat> const& platePictures() {
  static std::vector<cv::Mat> const pictures = [] {
    std::vector<cv::Mat> result;
    cv::Point2d const middle(75, 52);
    for (sim::Pose const& pose :
         {sim::viewOf(middle, 300, 3, 0, 2), sim::viewOf(middle, 330, 28, 60, 15),
          sim::viewOf(middle, 320, 30, 170, -10), sim::viewOf(middle, 340, 26, 285, 30)}) {
      sim::TargetPhoto photo;
      photo.device = sim::Device({focalPx, focalPx}, {319.5, 239.5}, {}, {640, 480});
      photo.target.grid = {15, {0, 11}, {0, 8}, 0.85, false};
      photo.cam_from_target = pose;
      photo.noise = 1;
      result.push_back(sim::render(photo));
    }
    return result;
  }();
  return pictures;
}

class CalibrateCommand : public testing::Test {
protected:
  void SetUp() override {
    for (int i = 0; i < pictureCount; ++i) {
      writeImage(path("views/plate-" + std::to_string(i) + ".png"),
                 platePictures()[static_cast<std::size_t>(i)]);
    }
  }

  std::string path(std::string const& name) const {
    std::filesystem::path const result = folder_.path() / name;
    std::filesystem::create_directories(result.parent_path());
    return result.string();
  }

  void describe(std::string const& text) const { std::ofstream(path("views/target.json")) << text; }

  /// What `calibrate --camera` says of the pictures.
  ToolOutcome calibrate(std::vector<std::string> const& options) const {
    std::vector<std::string> arguments = {"calibrate", path("views"), "--camera"};
    if (std::find(options.begin(), options.end(), "--out") == options.end()) {
      arguments.insert(arguments.end(), {"--out", path("camera.json")});
    }
    arguments.insert(arguments.end(), options.begin(), options.end());
    return run(arguments);
  }

  void expectTheCamera() const {
    auto const camera = load<mv::CameraModel>(path("camera.json"));
    EXPECT_NEAR(camera.getK().at<double>(0, 0), focalPx, 0.01 * focalPx);
    EXPECT_LT(camera.getCalibError(), 0.1);
  }

  test::TemporaryFolder folder_;
};

TEST_F(CalibrateCommand, TakesPicturesAndTheDescriptionBesideThem) {
  describe(R"({"pitch": 15, "size": [11, 8]})");
  ToolOutcome const outcome = calibrate({});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_NE(outcome.output.find("target.json, pitch 15 mm\n"), std::string::npos) << outcome.output;
  EXPECT_NE(outcome.output.find("plate-3.png"), std::string::npos) << outcome.output;
  expectTheCamera();

  // A pitch that is given goes before the file's, and is said.
  ToolOutcome const doubled = calibrate({"--pitch", "30"});
  EXPECT_EQ(doubled.status, 0) << doubled.errors;
  EXPECT_NE(doubled.errors.find("the pitch is taken as 30 mm"), std::string::npos) << doubled.errors;
  ToolOutcome const small =
      calibrate({"--pitch", "0.5"}); // less than the detector takes that is not used here
  EXPECT_EQ(small.status, 0) << small.errors;
}

TEST_F(CalibrateCommand, TakesTheTargetFromOptionsOrAnotherFile) {
  ToolOutcome const inMillimetres = calibrate({"--size", "11x8", "--pitch", "15"});
  EXPECT_EQ(inMillimetres.status, 0) << inMillimetres.errors;
  EXPECT_EQ(inMillimetres.errors.find("metres"), std::string::npos) << inMillimetres.errors;
  expectTheCamera();
  ToolOutcome const inMetres = calibrate({"--size", "11x8", "--pitch", "0.015"});
  EXPECT_EQ(inMetres.status, 0) << inMetres.errors;
  EXPECT_NE(inMetres.errors.find("metres, give 15:"), std::string::npos) << inMetres.errors;
  expectTheCamera();
  std::ofstream(path("plate.json")) << R"({"pitch": 15, "size": [11, 8], "polarity": "bright"})";
  describe(R"({"pitch": 20, "size": [5, 5]})");
  ToolOutcome const outcome = calibrate({"--target", path("plate.json")});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  expectTheCamera();
}

TEST_F(CalibrateCommand, TakesABentTargetAsFlatWhereItIsToldSo) {
  ASSERT_EQ(run({"simulate", path("bent"), "--divisor", "3", "--fault", "bent-target=1"}).status, 0);
  auto const kindOf = [&](std::vector<std::string> const& options) {
    std::vector<std::string> arguments = {"calibrate",     path("bent/calib"), "--camera",
                                          "--out",         path("bent.json"),  "--set",
                                          "MinDotArea=20", "--report",         path("report.json")};
    arguments.insert(arguments.end(), options.begin(), options.end());
    ToolOutcome const outcome = run(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    nlohmann::json const report = nlohmann::json::parse(std::ifstream(path("report.json")));
    return report["adjustment"]["shape"]["kind"].get<std::string>();
  };
  EXPECT_EQ(kindOf({"--target-shape", "flat"}), "flat");
  EXPECT_NE(kindOf({}), "flat");
  EXPECT_EQ(
      run({"calibrate", path("bent/calib"), "--out", path("bent.json"), "--target-shape", "round"}).status,
      2);
}

TEST_F(CalibrateCommand, RefusesWhatDoesNotFit) {
  struct Case {
    std::vector<std::string> options;
    int status;
    std::string text;
  };
  for (Case const& wrong : std::vector<Case>{
           {{}, 2, "--pitch MM"},
           {{"--size", "11x8"}, 2, "--pitch MM"},
           {{"--size", "11x8", "--pitch", "15", "--set", "MinDotArea=20"}, 2, "excludes"},
           {{"--size", "11x8", "--pitch", "15", "--projector", "640x400"}, 2, "excludes"},
           {{"--size", "9x8", "--pitch", "15"}, 1, "are not the target's 9 x 8"},
           {{"--pitch", "0.5"}, 2, "describe one of any pitch"},
           {{"--pitch", "15", "--set", "PatternDim=15"}, 2, "by --set PatternDim too"},
       }) {
    ToolOutcome const outcome = calibrate(wrong.options);
    EXPECT_EQ(outcome.status, wrong.status) << outcome.errors;
    EXPECT_NE(outcome.errors.find(wrong.text), std::string::npos) << outcome.errors;
  }
  describe(R"({"pitch": 15, "size": [11, 8]})");
  EXPECT_NE(calibrate({"--set", "MinDotArea=20"}).errors.find("does not find the target"), std::string::npos);
  ToolOutcome const onto = calibrate({"--out", path("views/target.json")});
  EXPECT_EQ(onto.status, 1);
  EXPECT_NE(onto.errors.find("it is an input"), std::string::npos) << onto.errors;
}

TEST(SimulatedTargets, OfChessboardsCalibrateTheirRig) {
  test::TemporaryFolder const folder;
  auto const path = [&](std::string const& name) { return (folder.path() / name).string(); };
  auto const simulated =
      run({"simulate", path("rig"), "--kind", "chessboard", "--divisor", "4", "--json", "--quiet"});
  ASSERT_EQ(simulated.status, 0) << simulated.errors;
  EXPECT_EQ(nlohmann::json::parse(simulated.output)["kind"], "chessboard");
  EXPECT_EQ(readJsonFile(path("rig/target.json"))["size"], nlohmann::json({18, 13}));
  auto const outcome =
      run({"calibrate", path("rig/calib"), "--projector", "228x142", "--out", path("scanner.json")});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  auto const base = [&](std::string const& file) {
    auto const h = readJsonFile(path(file))["Hpc"]["data"].get<std::vector<double>>();
    return cv::Vec3d(h[3], h[7], h[11]);
  };
  EXPECT_LT(cv::norm(base("scanner.json") - base("rig/scanner_truth.json")), 1.0) << "mm of 199";
}

TEST(SimulatedTargets, WithoutDotsHaveNoFaultsOfDots) {
  test::TemporaryFolder const folder;
  auto const path = [&](std::string const& name) { return (folder.path() / name).string(); };
  auto const refused = run({"simulate", path("x"), "--kind", "chessboard", "--fault", "dirty-dots"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.errors.find("marked dots"), std::string::npos) << refused.errors;
  EXPECT_EQ(run({"simulate", path("x"), "--kind", "squares"}).status, 2);
  EXPECT_FALSE(std::filesystem::exists(path("x")));
}

} // namespace
} // namespace vorn::tools
