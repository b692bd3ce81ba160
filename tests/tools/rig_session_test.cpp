// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/// Two cameras and a projector at the tool: one command, one report, three files.
#include <filesystem>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/json_file.hpp>
#include <vorn/mv/calib/stereo_camera.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "sim/demo.hpp"
#include "sim/folder.hpp"
#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/files/json_file.hpp"

namespace vorn::test {
namespace {

namespace fs = std::filesystem;

class RigSession : public testing::Test {
protected:
  static void SetUpTestSuite() {
    mv::Library::init();
    folder = new TemporaryFolder;
    std::vector<sim::Pose> const all = sim::demoTargetPoses();
    sim::FolderOptions options;
    options.truth = false;
    options.rows = true;
    options.render.supersample = 1; // dots are drawn exactly whatever the number of rays
    constexpr int divisor = 3;
    std::vector<sim::Pose> const poses = {all[0], all[2], all[4], all[7]};
    sim::writeCalibrationFolder((*folder / "rig/calib").string(), sim::demoRig(divisor), sim::demoTarget(),
                                poses, options);
    sim::writeCalibrationFolder((*folder / "rig/second/calib").string(), sim::demoSecondRig(divisor),
                                sim::demoTarget(), poses, options);
  }
  static void TearDownTestSuite() { delete folder; }

  static std::string path(std::string const& name) { return (*folder / name).string(); }

  static ToolOutcome calibrate(std::vector<std::string> const& more) {
    std::vector<std::string> arguments = {"calibrate", path("rig"), "--rig",        "--pitch",
                                          "15",        "--set",     "MinDotArea=10"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run(arguments);
  }

  static TemporaryFolder* folder;
};

TemporaryFolder* RigSession::folder = nullptr;

TEST_F(RigSession, WritesThreeObjectsOfOneRigAndOneReport) {
  ToolOutcome const done =
      calibrate({"--out", path("scanner.json"), "--out-pair", path("pair.json"), "--out-second",
                 path("second.json"), "--report", path("report.json"), "--plot", path("errors.png"), "--html",
                 path("page.html"), "--overlay", path("overlays")});
  ASSERT_EQ(done.status, 0) << done.errors;
  EXPECT_NE(done.output.find("Both cameras"), std::string::npos);
  mv::Sl3dScanner const scanner = load<mv::Sl3dScanner>(path("scanner.json"));
  mv::Sl3dScanner const second = load<mv::Sl3dScanner>(path("second.json"));
  mv::StereoCamera const pair = load<mv::StereoCamera>(path("pair.json"));
  EXPECT_LT(cv::norm(pair.getTransform() * second.getTransform() - scanner.getTransform()), 1e-9);
  EXPECT_LT(cv::norm(second.getPose() - pair.getTransform()), 1e-12);
  EXPECT_EQ(cv::norm(scanner.getCameraModel().getK(), pair.getCameraModel0().getK()), 0);
  EXPECT_EQ(cv::norm(scanner.getProjectorModel().getK(), second.getProjectorModel().getK()), 0);
  nlohmann::json const report = tools::readJsonFile(path("report.json"));
  for (char const* part : {"second", "pair"}) {
    EXPECT_EQ(report.at(part).at("views").size(), 4U);
  }
  EXPECT_LT(report.at("closure").at("shift").get<double>(), 1);
  for (char const* file :
       {"errors.png", "page.html", "overlays/pose_00_target.png", "overlays/second/pose_00_target.png"}) {
    EXPECT_TRUE(fs::exists(path(file))) << file;
  }
}

TEST_F(RigSession, SaysWhatIsMissing) {
  EXPECT_NE(calibrate({"--out", path("a.json")}).status, 0);
  std::vector<std::string> const outputs = {"--out",        path("a.json"), "--out-pair",
                                            path("b.json"), "--out-second", path("c.json")};
  fs::rename(path("rig/second"), path("rig/elsewhere"));
  ToolOutcome const alone = calibrate(outputs);
  fs::rename(path("rig/elsewhere"), path("rig/second"));
  EXPECT_EQ(alone.status, 1);
  EXPECT_NE(alone.errors.find("what the second camera saw"), std::string::npos) << alone.errors;
  EXPECT_FALSE(fs::exists(path("a.json")));
}

} // namespace
} // namespace vorn::test
