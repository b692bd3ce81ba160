// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/// Views and scans whose folders and pictures have other names: the same results as with the usual ones.
#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include "sim/demo.hpp"
#include "sim/folder.hpp"
#include "support/file_content.hpp"
#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/files/image_files.hpp"

namespace vorn::test {
namespace {

namespace fs = std::filesystem;

class NamedViews : public testing::Test {
protected:
  static std::string path(std::string const& name) { return (folder() / name).string(); }
  static fs::path folder() { return place->path(); }

  static void SetUpTestSuite() {
    place = new TemporaryFolder;
    std::vector<sim::Pose> poses = sim::demoTargetPoses();
    poses.resize(3);
    sim::FolderOptions options;
    options.truth = false;
    options.rows = true;
    options.render.supersample = 1; // dots are drawn exactly whatever the number of rays
    constexpr int divisor = 3;
    sim::writeCalibrationFolder(path("usual"), sim::demoRig(divisor), sim::demoTarget(), poses, options);
    fs::create_directory(path("named"));
    for (int i = 0; i < 3; ++i) {
      rename(path("usual/pose_0" + std::to_string(i)), path("named/place " + std::to_string(i)));
    }
  }
  static void TearDownTestSuite() { delete place; }

  /// Columns as one TIFF file of pages, rows with numbers from 1 that are not filled up.
  static void rename(fs::path const& usual, fs::path const& named) {
    fs::create_directory(named);
    fs::copy_file(usual / "target.png", named / "white light.png");
    std::vector<cv::Mat> pages;
    for (tools::NumberedFile const& file : tools::findSequence(usual.string(), "columns")) {
      pages.push_back(cv::imread(file.path, cv::IMREAD_UNCHANGED));
    }
    ASSERT_TRUE(cv::imwrite((named / "x.tif").string(), pages));
    int number = 1;
    for (tools::NumberedFile const& file : tools::findSequence(usual.string(), "rows")) {
      fs::copy_file(file.path, named / ("y" + std::to_string(number++) + ".png"));
    }
  }

  static std::vector<std::string> common(std::string const& views, std::string const& out) {
    return {"calibrate", path(views), "--pitch",       "15",    "--projector",
            "304x190",   "--set",     "MinDotArea=10", "--out", path(out)};
  }

  static TemporaryFolder* place;
};

TemporaryFolder* NamedViews::place = nullptr;

TEST_F(NamedViews, CalibrateAsTheUsualOnes) {
  ToolOutcome const usual = run(common("usual", "usual.json"));
  ASSERT_EQ(usual.status, 0) << usual.errors;
  std::vector<std::string> arguments = common("named", "named.json");
  for (char const* more : {"--poses", "place*", "--target-image", "white*", "--columns", "x.tif", "--rows",
                           "y*.png", "--report"}) {
    arguments.emplace_back(more);
  }
  arguments.push_back(path("report.json"));
  arguments.emplace_back("--overlay");
  arguments.push_back(path("overlays"));
  ToolOutcome const named = run(arguments);
  ASSERT_EQ(named.status, 0) << named.errors;
  EXPECT_EQ(contentOf(path("named.json")), contentOf(path("usual.json")));
  EXPECT_TRUE(fs::exists(path("overlays/place 0_white light.png")));
  // Every picture that was read is among the inputs.
  nlohmann::json const report = nlohmann::json::parse(contentOf(path("report.json")));
  std::size_t const rows = tools::findSequence(path("usual/pose_00"), "rows").size();
  EXPECT_EQ(report["inputs"].size(), 3 * (1 + 1 + rows));
}

TEST_F(NamedViews, TheTargetMayBeAnyKindOfPicture) {
  fs::copy(path("usual"), path("mixed"), fs::copy_options::recursive);
  fs::remove(path("mixed/pose_01/target.png"));
  cv::imwrite(path("mixed/pose_01/target.tiff"),
              cv::imread(path("usual/pose_01/target.png"), cv::IMREAD_UNCHANGED));
  std::vector<std::string> arguments = common("mixed", "mixed.json");
  arguments.insert(arguments.end(), {"--report", path("mixed_report.json")});
  ToolOutcome const mixed = run(arguments);
  ASSERT_EQ(mixed.status, 0) << mixed.errors;
  EXPECT_NE(contentOf(path("mixed_report.json")).find("target.tiff"), std::string::npos);
  fs::rename(path("mixed/pose_01/target.tiff"), path("mixed/pose_01/white.tiff"));
  std::string const missing = run(arguments).errors;
  EXPECT_NE(missing.find("--target-image names another picture"), std::string::npos) << missing;
  for (char const* name : {"target.tiff", "target.bmp"}) {
    fs::copy_file(path("mixed/pose_01/white.tiff"), path("mixed/pose_01") + "/" + name);
  }
  std::string const several = run(arguments).errors;
  EXPECT_NE(several.find("more than one picture"), std::string::npos) << several;
}

TEST_F(NamedViews, LaserScansAsTheUsualOnes) {
  ASSERT_EQ(run({"simulate", path("laser"), "--laser", "--divisor", "4", "--no-calib", "--quiet"}).status, 0);
  std::vector<cv::Mat> pages;
  fs::create_directory(path("numbered"));
  fs::create_directory(path("paged"));
  for (char const* folder : {"numbered", "paged"}) {
    fs::copy_file(path("laser/scan/stage.json"), path(folder) + std::string("/stage.json"));
  }
  for (tools::NumberedFile const& file : tools::findSequence(path("laser/scan"), "line")) {
    pages.push_back(cv::imread(file.path, cv::IMREAD_UNCHANGED));
    // Numbers from 5 on: "10" comes after "9".
    fs::copy_file(file.path, path("numbered/l" + std::to_string(pages.size() + 4) + ".png"));
  }
  ASSERT_GT(pages.size(), 10U);
  ASSERT_TRUE(cv::imwrite(path("paged/all.tif"), pages));
  auto const scan = [](std::string const& folder, std::string const& out,
                       std::vector<std::string> const& names) {
    std::vector<std::string> arguments = {
        "scan", path(folder), "--laser", "--calib", path("laser/laser_truth.json"), "--out", path(out)};
    arguments.insert(arguments.end(), names.begin(), names.end());
    ToolOutcome const outcome = run(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    return contentOf(path(out));
  };
  std::string const usual = scan("laser/scan", "usual.ply", {});
  EXPECT_EQ(scan("numbered", "numbered.ply", {"--lines", "l*.png"}), usual);
  EXPECT_EQ(scan("paged", "paged.ply", {"--lines", "all.tif"}), usual);
}

TEST_F(NamedViews, WrongNamesAreSaid) {
  auto const expectError = [](std::vector<std::string> arguments, std::vector<std::string> const& more,
                              std::string const& part) {
    arguments.insert(arguments.end(), more.begin(), more.end());
    ToolOutcome const outcome = run(arguments);
    EXPECT_NE(outcome.status, 0);
    EXPECT_NE(outcome.errors.find(part), std::string::npos) << outcome.errors;
  };
  std::vector<std::string> const named = common("named", "a.json");
  expectError(named, {}, "pose_00, pose_01");
  expectError(named, {"--poses", "place*", "--target-image", "y*"}, "and one is wanted");
  expectError(named, {"--poses", "place*", "--target-image", "white*", "--columns", "z*"}, "z*");
  expectError({"calibrate", path("named"), "--stereo", "--pitch", "15", "--out", path("a.json")},
              {"--target-image", "white*"}, "two names");
  expectError({"check", path("usual/pose_00"), "--calib", path("usual.json")}, {"--columns", "z*"}, "z*");
  EXPECT_FALSE(fs::exists(path("a.json")));
}

} // namespace
} // namespace vorn::test
