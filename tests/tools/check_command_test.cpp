// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Whether a scan agrees with its calibration, by the tool: with the true one, one whose projector was turned,
// and by the balls of the scene.
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include <vorn/graphic/graphic_object.hpp>
#include <vorn/mv/calib/calibration_covariance.hpp>
#include <vorn/mv/calib/target_description.hpp>
#include <vorn/mv/geometry/transform.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "sim/demo.hpp"
#include "sim/folder.hpp"
#include "support/file_content.hpp"
#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/json_file.hpp"

namespace vorn::tools {
namespace {

namespace fs = std::filesystem;
using test::contentOf;
using test::run;
using test::ToolOutcome;

/// A scan with columns and rows of a small rig, rendered once.
fs::path const& rendered() {
  static test::TemporaryFolder const folder;
  static fs::path const path = [] {
    EXPECT_EQ(run({"simulate", folder.path(), "--divisor", "4", "--no-calib", "--rows"}).status, 0);
    return folder.path();
  }();
  return path;
}

mv::Sl3dScanner exactScanner() {
  mv::Sl3dScanner scanner;
  load((rendered() / "scanner_truth.json").string(), scanner);
  return scanner;
}

ToolOutcome check(fs::path const& calibration, std::vector<std::string> const& more) {
  std::vector<std::string> arguments{"check", (rendered() / "scan").string(), "--calib",
                                     calibration.string()};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return run(arguments);
}

TEST(CheckCommand, FindsATurnedProjectorAndRepairsIt) {
  test::TemporaryFolder const out;
  fs::path const exact = rendered() / "scanner_truth.json";
  ToolOutcome const good =
      check(exact, {"--repair", out / "none.json", "--html", out / "page.html", "--json"});
  ASSERT_EQ(good.status, 0) << good.errors;
  nlohmann::json const report = nlohmann::json::parse(good.output);
  EXPECT_EQ(report["verdict"], "good");
  EXPECT_FALSE(report["repaired"].get<bool>());
  EXPECT_FALSE(fs::exists(out / "none.json"));
  EXPECT_NE(contentOf(out / "page.html").find("Columns and rows agree"), std::string::npos);

  mv::Sl3dScanner scanner = exactScanner();
  cv::Matx33d turn;
  cv::Rodrigues(cv::Vec3d(0, 0.004, 0.002), turn);
  cv::Matx44d const transform = scanner.getTransform();
  scanner.setTransform(
      mv::math::createTransform(turn * mv::math::getR3(transform), mv::math::getT3(transform)));
  vorn::save(out / "turned.json", scanner);
  ToolOutcome const bad = check(out / "turned.json", {"--json"});
  EXPECT_EQ(bad.status, 1);
  EXPECT_NE(bad.errors.find("has drifted"), std::string::npos) << bad.errors;
  EXPECT_EQ(nlohmann::json::parse(bad.output)["verdict"], "drifted");

  ToolOutcome const mended = check(out / "turned.json", {"--repair", out / "mended.json"});
  EXPECT_EQ(mended.status, 0) << mended.errors;
  mv::Sl3dScanner again;
  load(out / "mended.json", again);
  EXPECT_LT(cv::norm(again.getTransform() - transform, cv::NORM_INF), 5e-4);
  EXPECT_EQ(check(out / "mended.json", {}).status, 0);
}

/// The scene's two balls are 100.783 mm apart by its own description, and joined by a rod.
TEST(CheckCommand, ComparesALengthWithTheTruth) {
  fs::path const exact = rendered() / "scanner_truth.json";
  std::vector<std::string> const balls{"--ball", "55,62", "--ball", "131,58", "--json", "--length"};
  auto const with = [&](std::string const& length) {
    std::vector<std::string> more = balls;
    more.push_back(length);
    return check(exact, more);
  };
  ToolOutcome const good = with("100.783");
  ASSERT_EQ(good.status, 0) << good.errors;
  nlohmann::json const length = nlohmann::json::parse(good.output)["length"];
  EXPECT_NEAR(length["measured"].get<double>(), std::sqrt(100.0 * 100 + 6 * 6 + 11 * 11), 0.02);
  EXPECT_LT(length["sigma"].get<double>(), 0.01);
  for (nlohmann::json const& ball : length["balls"]) {
    EXPECT_NEAR(ball["radius"].get<double>(), 27, 0.05);
  }
  ToolOutcome const bad = with("101");
  EXPECT_EQ(bad.status, 1);
  EXPECT_NE(bad.errors.find("101 mm"), std::string::npos) << bad.errors;
  EXPECT_EQ(check(exact, {"--length", "100.783", "--ball", "55,62", "--ball", "160,200"}).status, 1)
      << "no ball";
  EXPECT_EQ(check(exact, {"--length", "100.783", "--ball", "55,62", "--ball", "57,64"}).status, 1)
      << "one ball";
}

/// Dots six columns and three rows apart in a view of the target, whose pitch is 15 mm.
TEST(CheckCommand, ComparesALengthOfTwoDots) {
  test::TemporaryFolder const folder;
  sim::Rig const rig = sim::demoRig(2);
  sim::writeScannerTruth(folder / "scanner_truth.json", rig);
  sim::FolderOptions both;
  both.rows = true;
  sim::writeCalibrationFolder(folder / "calib", rig, sim::demoTarget(), {sim::demoTargetPoses().front()},
                              both);
  mv::TargetDescription target;
  sim::DotGrid const& grid = sim::demoTarget().grid;
  target.pitch = grid.pitch;
  target.first = {grid.columns.start, grid.rows.start};
  target.size = {grid.columns.size(), grid.rows.size()};
  target.marks = {{0, 0}, {1, 0}, {0, 1}};
  target.polarity = mv::TargetPolarity::Bright;
  vorn::save(folder / "target.json", target);
  fs::path const pose = folder / "calib" / "pose_00";
  ToolOutcome const detected = run({"detect", pose / "target.png", "--json"});
  ASSERT_EQ(detected.status, 0) << detected.errors;
  nlohmann::json const points = nlohmann::json::parse(detected.output)["images"][0]["points"];
  auto const pixelOf = [&](int column, int row) {
    for (nlohmann::json const& point : points) {
      if (point["index"] == nlohmann::json({column, row})) {
        return std::to_string(std::lround(point["imgPnt"][0].get<double>())) + "," +
               std::to_string(std::lround(point["imgPnt"][1].get<double>()));
      }
    }
    return std::string("none");
  };
  auto const length = [&](std::vector<std::string> const& more) {
    std::vector<std::string> call{"check", pose.string(), "--calib", (folder / "scanner_truth.json").string(),
                                  "--json"};
    call.insert(call.end(), more.begin(), more.end());
    return run(call);
  };
  std::string const first = pixelOf(-3, -1);
  std::string const second = pixelOf(3, 2);
  double const truth = 15 * std::sqrt(6.0 * 6 + 3 * 3);
  ToolOutcome const good = length({"--length", std::to_string(truth), "--dot", first, "--dot", second});
  ASSERT_EQ(good.status, 0) << good.errors;
  nlohmann::json const found = nlohmann::json::parse(good.output)["length"];
  EXPECT_NEAR(found["measured"].get<double>(), truth, 0.02);
  EXPECT_LT(found["sigma"].get<double>(), 0.02);
  EXPECT_EQ(found["dots"][1]["index"], nlohmann::json({3, 2}));
  ToolOutcome const bad = length({"--length", std::to_string(1.01 * truth), "--dot", first, "--dot", second});
  EXPECT_EQ(bad.status, 1);
  EXPECT_NE(bad.errors.find("is measured as"), std::string::npos) << bad.errors;
  ToolOutcome const one = length({"--length", "50", "--dot", first, "--dot", first});
  EXPECT_NE(one.errors.find("one dot"), std::string::npos) << one.errors;
  ToolOutcome const away = length({"--length", "50", "--dot", first, "--dot", "2,2"});
  EXPECT_NE(away.errors.find("no dot at pixel 2,2"), std::string::npos) << away.errors;
}

TEST(CheckCommand, SaysWhatItLacks) {
  test::TemporaryFolder const out;
  fs::path const exact = rendered() / "scanner_truth.json";
  ToolOutcome const alone = check(exact, {"--length", "100", "--ball", "3,4"});
  EXPECT_EQ(alone.status, 1);
  EXPECT_NE(alone.errors.find("--ball X,Y --ball X,Y"), std::string::npos) << alone.errors;
  EXPECT_NE(check(exact, {"--length", "100", "--ball", "3;4", "--ball", "9,9"}).errors.find("3;4"),
            std::string::npos);
  EXPECT_NE(check(exact, {"--repair", exact.string()}).status, 0) << "an input would be lost";
  fs::copy(rendered() / "scan", out.path() / "columns", fs::copy_options::recursive);
  for (auto const& entry : fs::directory_iterator(rendered() / "scan")) {
    std::string const name = entry.path().filename().string();
    if (name.rfind("rows_", 0) == 0) {
      fs::remove(out.path() / "columns" / name);
    }
  }
  ToolOutcome const half = run({"check", out / "columns", "--calib", exact.string()});
  EXPECT_EQ(half.status, 1);
  EXPECT_NE(half.errors.find("rows_00.png"), std::string::npos) << half.errors;
}

TEST(ScanCommand, WritesErrorsWithPoints) {
  test::TemporaryFolder const out;
  std::vector<std::string> const call{"scan",    (rendered() / "scan").string(),
                                      "--calib", (rendered() / "scanner_truth.json").string(),
                                      "--out",   out / "c.ply",
                                      "--fields"};
  auto const with = [&](std::string const& fields) {
    std::vector<std::string> arguments = call;
    arguments.push_back(fields);
    return run(arguments);
  };
  ASSERT_EQ(with("sigma,modulation").status, 0);
  graphic::GraphicObject const object = readGraphic(out / "c.ply");
  ASSERT_EQ(object.fields().size(), 2U);
  ASSERT_EQ(object.fields().at("sigma").size(), object.vertices().size());
  for (float const sigma : object.fields().at("sigma")) {
    ASSERT_TRUE(sigma > 0.0F && sigma < 5.0F) << sigma;
  }
  ToolOutcome const unknown = with("sigma_calibration");
  EXPECT_EQ(unknown.status, 1);
  EXPECT_NE(unknown.errors.find("Covariance"), std::string::npos) << unknown.errors;
  EXPECT_EQ(with("colour").status, 2);
}

} // namespace
} // namespace vorn::tools
