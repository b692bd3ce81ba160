// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <fstream>
#include <limits>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include "sim/demo.hpp"
#include "sim/laser.hpp"
#include "sim/truth_json.hpp"
#include "support/point_sets.hpp"
#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/dirty_plane.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"

namespace vorn::tools {
namespace {

using test::run;
using test::ToolOutcome;

TEST(InfoCommand, DescribesACloud) {
  test::TemporaryFolder const folder;
  std::string const path = folder / "cloud.ply";
  graphic::GraphicObject object = dirtyPlane();
  object.vertices().emplace_back(test::notANumber, 0.0F, 0.0F);
  object.normals().assign(object.vertices().size(), cv::Vec3f(0, 0, 1));
  for (cv::Vec3f& point : object.vertices()) {
    point *= 0.25F; // Exact, and so is the spacing.
  }
  writeGraphic(path, object);
  ToolOutcome const outcome = run({"info", path});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  for (char const* part :
       {"621 points (1 of them not finite), 0 triangles; normals, no colours",
        "Box from [0, 0, 125] to [25.75, 4.75, 225], size [25.75, 4.75, 100]", "Usual spacing 0.25 "}) {
    EXPECT_NE(outcome.output.find(part), std::string::npos) << outcome.output;
  }

  // One point and none have no spacing, and none no box.
  object = {};
  writeGraphic(path, object);
  EXPECT_EQ(run({"info", path}).output.find("Box"), std::string::npos);
  object.vertices() = {{1, 2, 3}};
  writeGraphic(path, object);
  std::string const single = run({"info", path}).output;
  EXPECT_NE(single.find("Box from [1, 2, 3]"), std::string::npos) << single;
  EXPECT_EQ(single.find("spacing"), std::string::npos) << single;
  EXPECT_EQ(run({"info", folder / "absent.ply"}).status, 1);
}

TEST(InfoCommand, TellsWhatADocumentDescribes) {
  test::TemporaryFolder const folder;
  nlohmann::json const laser = sim::laserJson(sim::demoLaserRig(4));
  nlohmann::json const scanner = sim::scannerJson(sim::demoRig(4));
  struct Case {
    char const* kind;
    nlohmann::json document;
    char const* words;
  };
  for (Case const& known :
       {Case{"lineScanner", laser, "Laser line scanner, calibrated"},
        Case{"stereoCamera", sim::stereoJson(sim::demoStereoRig(4)), "Stereo camera, calibrated"},
        Case{"scanner", scanner, "calibrated"}, Case{"camera", scanner["CameraModel"], "focal length"},
        Case{"target", {{"pitch", 15}}, "Description of a target"},
        Case{"motion", {{"targetFromSource", 1}, {"covariance", 2}}, "Motion of a registration"},
        Case{"stage", {{"step", {0, 0.1, 0}}}, "[0,0.1,0]"},
        Case{"heightMap", {{"cellSize", 0.25}, {"mapFromCloud", 1}}, "cellSize 0.25"},
        Case{"views", {{"views", {{{"name", "a"}, {"commonFromView", 1}}}}}, "Poses of views"}}) {
    writeJsonFile(folder / "document.json", known.document);
    ToolOutcome const outcome = run({"info", folder / "document.json"});
    ASSERT_EQ(outcome.status, 0) << known.kind << outcome.errors;
    EXPECT_NE(outcome.output.find(known.words), std::string::npos) << outcome.output;
    nlohmann::json const told =
        nlohmann::json::parse(run({"info", folder / "document.json", "--json"}).output);
    EXPECT_EQ(told["files"][0]["kind"], known.kind);
    if (known.document.contains("Plane_0")) {
      EXPECT_EQ(told["files"][0]["isCalibrated"], true);
      EXPECT_EQ(told["files"][0]["planes"].size(), sim::demoLaserRig(4).lasers.size());
    }
  }
}

TEST(InfoCommand, TellsThePointsOfAGridAndWhatAPlyFileHasBeside) {
  test::TemporaryFolder const folder;
  cv::Mat_<cv::Vec3f> grid(2, 3, cv::Vec3f(1, 2, 500));
  grid(1, 2) = cv::Vec3f::all(std::numeric_limits<float>::quiet_NaN());
  grid(0, 1) = {-4, 2, 510};
  writeImage((folder / "grid.tiff").string(), grid);
  nlohmann::json const told = nlohmann::json::parse(run({"info", folder / "grid.tiff", "--json"}).output);
  EXPECT_EQ(told["files"][0]["kind"], "picture");
  EXPECT_EQ(told["files"][0]["cloud"]["points"], 6);
  EXPECT_EQ(told["files"][0]["cloud"]["finitePoints"], 5);
  EXPECT_EQ(told["files"][0]["cloud"]["box"]["origin"][0], -4) << told.dump();

  std::ofstream(folder / "edges.ply") << "ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\n"
                                         "property float y\nproperty float z\nelement edge 1\n"
                                         "property int first\nproperty int second\nend_header\n1 2 3\n0 0\n";
  ToolOutcome const edges = run({"info", folder / "edges.ply"});
  EXPECT_EQ(edges.status, 0);
  EXPECT_NE(edges.errors.find("passed over"), std::string::npos) << edges.errors;
  EXPECT_NE(edges.errors.find("edge"), std::string::npos) << edges.errors;
}

TEST(InfoCommand, GoesOnAfterFilesThatItCannotRead) {
  test::TemporaryFolder const folder;
  writeJsonFile(folder / "step.json", {{"step", {0, 0.1, 0}}});
  std::ofstream(folder / "broken.ply") << "ply\nformat ascii 1.0\nelement vertex 9\n";
  std::ofstream(folder / "points.xyz") << "1 2 3\n4 5 6\n";
  ToolOutcome const outcome =
      run({"info", folder / "absent.ply", folder / "broken.ply", folder.path(), folder / "step.json",
           folder / "points.xyz", "--report", folder / "report.json"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.output.find("Motion of a stage"), std::string::npos) << outcome.output;
  EXPECT_NE(outcome.output.find("2 points"), std::string::npos) << outcome.output;
  for (char const* const name : {"absent.ply", "broken.ply", "it is a folder", "3 of 5 files"}) {
    EXPECT_NE(outcome.errors.find(name), std::string::npos) << outcome.errors;
  }
  nlohmann::json const report = readJsonFile(folder / "report.json");
  EXPECT_EQ(report["files"].size(), 2U);
  EXPECT_EQ(report["warnings"].size(), 3U);
}

TEST(InfoCommand, DescribesACameraWithoutDistortion) {
  test::TemporaryFolder const folder;
  nlohmann::json const K{
      {"rows", 3}, {"cols", 3}, {"dt", "d"}, {"data", {800, 0, 320, 0, 810, 240, 0, 0, 1}}};
  writeJsonFile(folder / "camera.json", {{"Resolution", {640, 480}}, {"K", K}, {"Error", 0.1}});
  ToolOutcome const outcome = run({"info", folder / "camera.json"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_NE(outcome.output.find("focal lengths 800, 810 px"), std::string::npos) << outcome.output;
}

} // namespace
} // namespace vorn::tools
