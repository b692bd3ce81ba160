// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// From the images of a pattern set that is not the scanner's own to a calibration and to points, by the tool.
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <vorn/core/json_file.hpp>
#include <vorn/mv/sl/pattern_set.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "sim/demo.hpp"
#include "sim/folder.hpp"
#include "sim/render.hpp"
#include "sim/target.hpp"
#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"

namespace vorn::tools {
namespace {

namespace fs = std::filesystem;
using test::run;
using test::ToolOutcome;

/// What the camera captures of a set, and its description, in one folder.
void writeCapture(fs::path const& folder, mv::PatternSet set, sim::Rig const& rig, sim::Scene const& scene,
                  fs::path const& description) {
  sim::RenderOptions options;
  options.supersample = 1;
  std::vector<cv::Mat> const images =
      sim::ProjectorView(rig.camera, rig.projector, scene, options).capture(set.generate());
  fs::create_directories(folder);
  for (std::size_t i = 0; i < images.size(); ++i) {
    set.images[i].file = "shot_" + std::to_string(i) + ".png";
    writeImage((folder / set.images[i].file).string(), images[i]);
  }
  nlohmann::json json;
  set.write(json);
  writeJsonFile(description.string(), json);
}

mv::PatternSet setOf(sim::Rig const& rig) {
  mv::PatternSetOptions options;
  options.hasInverses = false; // white and black in their place
  options.steps = 3;
  return mv::PatternSet::builtIn("gray-phase", rig.projector.device.resolution(), options);
}

/// Views of the target by demoRig(2), rendered once; the description lies beside them.
fs::path const& renderedViews() {
  static test::TemporaryFolder const folder;
  static fs::path const views = [] {
    fs::path const root = folder.path() / "calib";
    sim::Rig const rig = sim::demoRig(2);
    for (std::size_t i = 0; i < 3; ++i) {
      writeCapture(root / ("pose_0" + std::to_string(i)), setOf(rig), rig,
                   sim::Scene({sim::targetObject(sim::demoTarget(), sim::demoTargetPoses()[i])}),
                   root / "pattern_set.json");
    }
    return folder.path();
  }();
  return views;
}

TEST(PatternScan, CalibratesByTheSetThatLiesWithTheViews) {
  test::TemporaryFolder const out;
  std::vector<std::string> const call{"calibrate", renderedViews().string(), "--pitch", "15",
                                      "--out",     out / "scanner.json",     "--set",   "MinDotArea=20",
                                      "--json"};
  ToolOutcome const outcome = run(call);
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  auto const report = nlohmann::json::parse(outcome.output);
  EXPECT_EQ(report["projector"]["resolution"], nlohmann::json({456, 285}));
  EXPECT_LT(report["projector"]["rms"].get<double>(), 0.06);
  EXPECT_EQ(report["inputs"].size(), 3U * setOf(sim::demoRig(2)).images.size() + 1U) << "hashed, all of them";
  auto const scanner = load<mv::Sl3dScanner>(out / "scanner.json");
  EXPECT_NEAR(scanner.getTransform()(0, 3), sim::demoRig(2).projector.world_from_proj.translation[0], 2.0);

  // A view of its own set; one whose image is missing says which.
  test::TemporaryFolder const own;
  fs::copy(renderedViews() / "calib", own.path() / "calib", fs::copy_options::recursive);
  fs::copy(own / "calib/pattern_set.json", own / "calib/pose_01/pattern_set.json");
  fs::remove(own / "calib/pose_02/shot_4.png");
  ToolOutcome const failed = run(
      {"calibrate", own.path().string(), "--pitch", "15", "--out", out / "s.json", "--set", "MinDotArea=20"});
  EXPECT_EQ(failed.status, 1);
  EXPECT_NE(failed.errors.find("Only 2 of 3 views"), std::string::npos) << failed.errors;
  EXPECT_NE(failed.errors.find("shot_4.png"), std::string::npos) << failed.errors;
}

TEST(PatternScan, MakesPointsAndTellsHowWellTheCoordinatesAgree) {
  test::TemporaryFolder const folder;
  sim::Rig const rig = sim::demoRig(4);
  writeCapture(folder.path() / "scan", setOf(rig), rig, sim::demoScene(),
               folder.path() / "scan" / "pattern_set.json");
  sim::writeScannerTruth(folder / "scanner.json", rig);
  std::vector<std::string> const call{
      "scan",   folder / "scan", "--calib",           folder / "scanner.json", "--out", folder / "cloud.ply",
      "--json", "--html",        folder / "page.html"};
  ToolOutcome const outcome = run(call);
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  auto const report = nlohmann::json::parse(outcome.output);
  EXPECT_GT(report["points"].get<int>(), 320 * 240 / 2);
  EXPECT_TRUE(report["warnings"].empty()) << report["warnings"];
  auto const& epipolar = report["epipolar"];
  EXPECT_GT(epipolar["pixels"].get<int>(), 320 * 240 / 2);
  EXPECT_EQ(epipolar["rejected"], report["notMeasured"]["contradiction"]);
  EXPECT_LT(epipolar["deviation"].get<double>(), 1.4 * epipolar["foretold"].get<double>());

  // Of a projector that was turned by a degree since.
  nlohmann::json moved = readJsonFile(folder / "scanner.json");
  sim::Rig turned = rig;
  turned.projector.world_from_proj.rotation =
      turned.projector.world_from_proj.rotation * sim::Pose::fromDegrees({0, 0, 0}, {1, 0, 0}).rotation;
  sim::writeScannerTruth(folder / "scanner.json", turned);
  ToolOutcome const after = run(call);
  EXPECT_NE((after.errors + after.output).find("was the projector moved"), std::string::npos)
      << after.errors << after.output;
}

} // namespace
} // namespace vorn::tools
