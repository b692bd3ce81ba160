// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <sim/part.hpp>

#include "support/file_content.hpp"
#include "support/page_json.hpp"
#include "support/point_sets.hpp"
#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"

namespace vorn::tools {
namespace {

using test::run;
using test::ToolOutcome;

/// The cap of a sphere of radius 50 whose top is 450 before the sensor, 1 apart, with a hole of 3 x 3 points.
cv::Mat_<cv::Vec3f> cap() {
  constexpr int side = 41;
  cv::Mat_<cv::Vec3f> points(side, side);
  for (int row = 0; row < side; ++row) {
    for (int column = 0; column < side; ++column) {
      double const x = column - 20.0;
      double const y = row - 20.0;
      points(row, column) = cv::Vec3f(cv::Vec3d(x, y, 500.0 - std::sqrt(2500.0 - x * x - y * y)));
    }
  }
  points(cv::Rect(9, 11, 3, 3)).setTo(cv::Scalar::all(test::notANumber));
  return points;
}

/// A cube of edge 2, its triangles outwards, one of them missing where `isClosed` does not hold.
graphic::GraphicObject cube(bool isClosed) {
  graphic::GraphicObject object;
  for (int i = 0; i < 8; ++i) {
    object.vertices().emplace_back(cv::Vec3d(i % 2 * 2.0, i / 2 % 2 * 2.0, i / 4 * 2.0));
  }
  object.triangles() = {{0, 2, 1}, {1, 2, 3}, {4, 5, 6}, {5, 7, 6}, {0, 1, 4}, {1, 5, 4},
                        {2, 6, 3}, {3, 6, 7}, {0, 4, 2}, {2, 4, 6}, {1, 3, 5}};
  if (isClosed) {
    object.triangles().emplace_back(3, 7, 5);
  }
  return object;
}

class SurfaceCommands : public testing::Test {
protected:
  nlohmann::json reportOf(std::vector<std::string> arguments) const {
    arguments.emplace_back("--json");
    ToolOutcome const outcome = run(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    return outcome.status == 0 ? nlohmann::json::parse(outcome.output) : nlohmann::json();
  }

  std::string grid(cv::Mat_<cv::Vec3f> const& points) const {
    writeImage(folder_ / "grid.tiff", points);
    return folder_ / "grid.tiff";
  }

  test::TemporaryFolder folder_;
};

TEST_F(SurfaceCommands, MeshJoinsAGridAroundItsHole) {
  for (std::string const ending : {".stl", ".obj", ".ply"}) {
    std::string const file = folder_ / ("mesh" + ending);
    nlohmann::json const mesh = reportOf({"mesh", grid(cap()), file})["mesh"];
    EXPECT_EQ(mesh["triangles"], 2 * (40 * 40 - 16) + 4) << "the corners of the hole are cut";
    ASSERT_EQ(mesh["boundaries"].size(), 2U);
    EXPECT_EQ(mesh["boundaries"][0]["vertices"], 160);
    EXPECT_EQ(mesh["boundaries"][1]["vertices"], 12);
    EXPECT_NEAR(mesh["boundaries"][1]["middle"][0].get<double>(), -10.0, 1e-4);
    EXPECT_TRUE(mesh["volume"].is_null());
    graphic::GraphicObject const written = readGraphic(file);
    EXPECT_EQ(written.triangles().size(), mesh["triangles"].get<std::size_t>());
    // Facing the sensor, which is at the origin: the first triangle's normal is towards it.
    cv::Vec3i const& first = written.triangles()[0];
    std::vector<cv::Vec3f> const& at = written.vertices();
    auto const corner = [&](int i) { return at[static_cast<std::size_t>(first[i])]; };
    EXPECT_LT((corner(1) - corner(0)).cross(corner(2) - corner(0)).dot(corner(0)), 0.0F);
  }
  nlohmann::json const fewer =
      reportOf({"mesh", grid(cap()), folder_ / "fewer.stl", "--simplify", "0.1"})["mesh"];
  EXPECT_LT(fewer["triangles"], 800);
  EXPECT_EQ(fewer["boundaries"].size(), 2U);
  nlohmann::json const away = reportOf({"mesh", grid(cap()), folder_ / "away.ply", "--orientation", "away"});
  EXPECT_GT(readGraphic(folder_ / "away.ply").normals()[0][2], 0.0F);
}

TEST_F(SurfaceCommands, MeshMeasuresAMeshAndFlagsFaults) {
  writeGraphic(folder_ / "closed.ply", cube(true));
  nlohmann::json const closed = reportOf({"mesh", folder_ / "closed.ply", folder_ / "a.stl"});
  EXPECT_NEAR(closed["mesh"]["volume"].get<double>(), 8.0, 1e-6);
  EXPECT_NEAR(closed["mesh"]["area"].get<double>(), 24.0, 1e-6);
  EXPECT_TRUE(closed["warnings"].empty());

  writeGraphic(folder_ / "open.ply", cube(false));
  nlohmann::json const open = reportOf({"mesh", folder_ / "open.ply", folder_ / "a.stl"})["mesh"];
  EXPECT_TRUE(open["volume"].is_null());
  EXPECT_EQ(open["boundaries"].size(), 1U);

  graphic::GraphicObject flipped = cube(true);
  std::swap(flipped.triangles()[4][0], flipped.triangles()[4][1]);
  flipped.triangles().emplace_back(0, 0, 1);
  writeGraphic(folder_ / "flipped.ply", flipped);
  nlohmann::json const faulty = reportOf({"mesh", folder_ / "flipped.ply", folder_ / "a.ply"});
  EXPECT_EQ(faulty["warnings"].size(), 2U) << faulty["warnings"];
  EXPECT_EQ(faulty["mesh"]["degenerateTriangles"], 1);
  EXPECT_TRUE(faulty["mesh"]["volume"].is_null());
  nlohmann::json const inwards =
      reportOf({"mesh", folder_ / "closed.ply", folder_ / "a.stl", "--orientation", "away"});
  EXPECT_EQ(inwards["warnings"].size(), 1U) << "a volume below 0 is said";
}

TEST_F(SurfaceCommands, HeightsComeBackAsPoints) {
  std::string const map = folder_ / "map.tiff";
  for (std::string const depth : {"32", "16"}) {
    nlohmann::json const report = reportOf({"height", grid(cap()), map, "--plane", "0", "0", "500", "0", "0",
                                            "-1", "--cell", "1", "--depth", depth});
    EXPECT_EQ(report["size"], nlohmann::json({41, 41}));
    EXPECT_NEAR(report["coverage"].get<double>(), 1.0 - 9.0 / (41 * 41), 1e-9);
    EXPECT_NEAR(report["highest"].get<double>(), 50.0, 1e-4);
    EXPECT_EQ(readImage(map).type(), depth == "32" ? CV_32FC1 : CV_16UC1);
    if (depth == "32") {
      cv::Mat_<float> const heights = readImage(map);
      EXPECT_EQ(
          std::count_if(heights.begin(), heights.end(), [](float height) { return std::isnan(height); }), 9);
    }
    reportOf({"height", map, folder_ / "back.ply"});
    std::vector<cv::Vec3f> const back = readGraphic(folder_ / "back.ply").vertices();
    ASSERT_EQ(back.size(), 41U * 41 - 9);
    // Half a step of the 16 bits over the range of heights, 50 - sqrt(2500 - 800) mm, and rounding.
    double const bound = depth == "32" ? 1e-4 : 0.5 * 8.8 / 65534 + 1e-4;
    for (cv::Vec3f const& point : back) {
      double const x = point[0];
      double const y = point[1];
      ASSERT_NEAR(point[2], 500.0 - std::sqrt(2500.0 - x * x - y * y), bound);
    }
  }
}

TEST_F(SurfaceCommands, MapsThatOnePointMakesHugeAreSaid) {
  cv::Mat_<cv::Vec3f> points = cap();
  EXPECT_TRUE(reportOf({"height", grid(points), folder_ / "map.tiff"})["warnings"].empty());
  points(0, 0) = {1e4F, 0.0F, 500.0F};
  nlohmann::json const report = reportOf({"height", grid(points), folder_ / "map.tiff"});
  ASSERT_EQ(report["warnings"].size(), 1U) << report["coverage"];
  EXPECT_NE(report["warnings"][0].get<std::string>().find("lie far from all others"), std::string::npos);
}

/// Places that floats cannot tell come back where they were, and a plane or a viewpoint among them is one.
TEST_F(SurfaceCommands, FarCoordinatesKeepTheirPlace) {
  graphic::GraphicObject object;
  object.offset() = {5e8, 2e8, 0.0};
  for (int i = 0; i < 900; ++i) {
    object.vertices().emplace_back(0.25F + static_cast<float>(i % 30), static_cast<float>(i / 30),
                                   100.0F + 0.5F * static_cast<float>(i % 7));
  }
  std::string const far = folder_ / "far.ply";
  writeGraphic(far, object);
  auto const placeOf = [](graphic::GraphicObject const& read, std::size_t i) {
    return read.offset() + cv::Vec3d(read.vertices()[i]);
  };
  reportOf({"height", far, folder_ / "far.tiff", "--cell", "1", "--plane", "5e8", "2e8", "0", "0", "0", "1"});
  reportOf({"height", folder_ / "far.tiff", folder_ / "back.ply"});
  graphic::GraphicObject const back = readGraphic(folder_ / "back.ply");
  ASSERT_EQ(back.vertices().size(), object.vertices().size());
  for (std::size_t const i : {0U, 29U, 870U, 899U}) {
    EXPECT_LT(cv::norm(placeOf(back, i) - placeOf(object, i)), 1e-3) << i;
  }
  // From below, the triangles look down.
  reportOf({"mesh", far, folder_ / "mesh.ply", "--viewpoint", "5e8", "2e8", "-1e4"});
  graphic::GraphicObject const mesh = readGraphic(folder_ / "mesh.ply");
  EXPECT_LT(mesh.normals()[mesh.normals().size() / 2][2], 0.0F);
  EXPECT_LT(std::abs(placeOf(mesh, 0)[0] - 5e8), 31.0);
}

TEST_F(SurfaceCommands, FuseMakesOnePartOfTheViewsOfAFolder) {
  std::string const part = folder_ / "part";
  ASSERT_EQ(run({"simulate", part, "--views", "3", "--turntable", "--divisor", "4", "--no-calib"}).status, 0);
  std::string const scanner = part + "/scanner_truth.json";
  nlohmann::json const report = reportOf(
      {"fuse", part, "--calib", scanner, "-o", folder_ / "part.ply", "--html", folder_ / "part.html"});
  ASSERT_EQ(report["views"].size(), 3U);
  EXPECT_EQ(report["views"][2]["name"], "view_02");
  EXPECT_TRUE(report["warnings"].empty()) << report["warnings"];
  EXPECT_EQ(report["mesh"]["faultyEdges"], 0);
  graphic::GraphicObject const fused = readGraphic(folder_ / "part.ply");
  EXPECT_EQ(fused.vertices().size(), report["points"].get<std::size_t>());
  EXPECT_EQ(fused.triangles().size(), report["mesh"]["triangles"].get<std::size_t>());
  EXPECT_EQ(fused.fields().count("sigma"), 1U);
  std::vector<double> errors;
  for (cv::Vec3f const& point : fused.vertices()) {
    errors.push_back(std::abs(sim::distanceToPart(cv::Vec3d(point))));
  }
  std::nth_element(errors.begin(), errors.begin() + static_cast<std::ptrdiff_t>(errors.size() / 2),
                   errors.end());
  EXPECT_LT(errors[errors.size() / 2], 0.1) << "mm";
  nlohmann::json const shown = test::pageJson(folder_ / "part.html", "scene")["clouds"];
  ASSERT_EQ(shown.size(), 4U);
  for (std::size_t i = 0; i < shown.size(); ++i) {
    EXPECT_EQ(shown[i]["isShown"], i == 0) << "the surface at first, its views when they are asked for";
  }

  nlohmann::json const texture =
      reportOf({"texture", folder_ / "part.ply", part, "--calib", scanner, "-o", folder_ / "textured.obj"});
  EXPECT_LT(texture["unseenVertices"].get<double>(), 0.05 * texture["vertices"].get<double>());
  cv::Mat const atlas = readImage(folder_ / "textured.png");
  EXPECT_EQ(nlohmann::json({atlas.cols, atlas.rows}), texture["atlas"]);
  EXPECT_NE(test::contentOf(folder_ / "textured.mtl").find("map_Kd textured.png"), std::string::npos);
  EXPECT_EQ(readGraphic(folder_ / "textured.obj").triangles().size(), fused.triangles().size());

  // The same from clouds, whose poses stand beside them; a wrong one is flagged.
  std::string const clouds = folder_ / "clouds";
  std::filesystem::create_directory(clouds);
  nlohmann::json const views = readJsonFile(part + "/views.json")["views"];
  for (int i = 0; i < 3; ++i) {
    std::string const name = "view_0" + std::to_string(i);
    ASSERT_EQ(
        run({"scan", part + "/" + name, "--calib", scanner, "--xyz", clouds + "/" + name + ".tiff"}).status,
        0);
    nlohmann::json pose = views[static_cast<std::size_t>(i)];
    if (i == 1) {
      double const height = pose["commonFromView"][1][3].get<double>();
      pose["commonFromView"][1][3] = height + 3.0;
    }
    test::put(clouds + "/" + name + ".json", pose.dump());
  }
  nlohmann::json const found = reportOf({"fuse", clouds, "-o", folder_ / "found.stl"});
  EXPECT_LT(found["views"][1]["apart"].get<double>(), 0.05) << "registration puts it right";
  nlohmann::json const off = reportOf({"fuse", clouds, "-o", folder_ / "off.stl", "--no-register"});
  EXPECT_GT(off["views"][1]["apart"].get<double>(), 0.1);
  EXPECT_FALSE(off["warnings"].empty());
  for (int i = 0; i < 3; ++i) {
    std::filesystem::remove(clouds + "/view_0" + std::to_string(i) + ".json");
  }
  EXPECT_EQ(run({"fuse", clouds, "-o", folder_ / "none.ply", "--json"}).errors.find("no view of") ==
                std::string::npos,
            false);
}

TEST_F(SurfaceCommands, SayWhatTheyCannotDo) {
  auto const refusal = [](std::vector<std::string> const& arguments) {
    ToolOutcome const outcome = run(arguments);
    EXPECT_EQ(outcome.status, 1);
    return outcome.errors;
  };
  graphic::GraphicObject heap;
  heap.vertices().assign(100, cv::Vec3f(1.0F, 2.0F, 3.0F));
  writeGraphic(folder_ / "heap.ply", heap);
  EXPECT_NE(refusal({"height", folder_ / "heap.ply", folder_ / "a.tiff"}).find("line"), std::string::npos);
  EXPECT_NE(refusal({"mesh", folder_ / "heap.ply", folder_ / "a.ply"}).find("one place"), std::string::npos);
  test::put(folder_ / "map.json", "{\"cellSize\": 0, \"scale\": 1, \"offset\": 0, \"mapFromCloud\": "
                                  "[[1,0,0,0],[0,1,0,0],[0,0,1,0],[0,0,0,1]]}");
  writeImage(folder_ / "map.tiff", cv::Mat_<float>(3, 3, 1.0F));
  EXPECT_NE(refusal({"height", folder_ / "map.tiff", folder_ / "a.ply"}).find("cellSize"), std::string::npos);
  EXPECT_NE(refusal({"mesh", grid(cap()), folder_ / "a.xyz"}).find("triangles"), std::string::npos);
  std::filesystem::create_directory(folder_ / "empty");
  EXPECT_NE(refusal({"fuse", folder_ / "empty", "-o", folder_ / "a.ply"}).find("no views"),
            std::string::npos);
  // The map's JSON must not replace an input.
  EXPECT_NE(
      refusal({"height", grid(cap()), folder_ / "b.tiff", "--report", folder_ / "b.json"}).find("b.json"),
      std::string::npos);
}

} // namespace
} // namespace vorn::tools
