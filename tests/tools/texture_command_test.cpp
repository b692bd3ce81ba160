// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/json_file.hpp>
#include <vorn/mv/core/matrix_json.hpp>
#include <vorn/mv/surface/mesh.hpp>

#include "support/file_content.hpp"
#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "surface/sheet_scene.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/view_folder.hpp"

namespace vorn::tools {
namespace {

using namespace test;

/// A sheet that two cameras see from one side: a fine one from the right, dark, and a coarse one, bright.
class TextureCommand : public testing::Test {
protected:
  static constexpr int dark = 80;
  static constexpr int bright = 120;

  void SetUp() override {
    writeGraphic(mesh_, graphicObjectOf(sheet()));
    vorn::save(folder_ / "coarse.json", pinhole());
    vorn::save(folder_ / "fine.json", pinhole(3));
    writeImage(folder_ / "bright.png", cv::Mat(height, width, CV_8UC1, bright));
    writeImage(folder_ / "right.png", cv::Mat(3 * height, 3 * width, CV_8UC1, dark));
    put(folder_ / "views.json", viewPosesJson({{"right", viewFromMesh(10.0).inv(), "fine.json", ""}}).dump());
    nlohmann::json const pose = viewPosesJson({{"left", viewFromMesh(-10.0).inv(), "", ""}})["views"][0];
    put(folder_ / "pose.json", pose.dump());
  }

  ToolOutcome texture(std::vector<std::string> const& options) const {
    std::vector<std::string> arguments{"texture", mesh_, "-o", output_, "--json"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return run(arguments);
  }

  nlohmann::json reportOf(std::vector<std::string> const& options) const {
    ToolOutcome const outcome = texture(options);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    return nlohmann::json::parse(outcome.output);
  }

  std::vector<std::string> left() const {
    return {"--view", folder_ / "bright.png", folder_ / "coarse.json", folder_ / "pose.json"};
  }

  std::vector<std::string> both() const {
    std::vector<std::string> options = left();
    options.insert(options.begin(), folder_ / "");
    return options;
  }

  TemporaryFolder folder_;
  std::string mesh_ = folder_ / "sheet.ply";
  std::string output_ = folder_ / "textured.obj";
};

TEST_F(TextureCommand, MatchesTwoCamerasAndShowsTheFinerOne) {
  nlohmann::json const report = reportOf(both());
  ASSERT_EQ(report["views"].size(), 2U);
  EXPECT_EQ(report["views"][0]["name"], "right");
  EXPECT_EQ(report["views"][0]["bestTriangles"], report["triangles"]);
  EXPECT_EQ(report["views"][1]["bestTriangles"], 0);
  EXPECT_EQ(report["brightnessSets"], 1);
  double const gain = std::sqrt(1.0 * bright / dark);
  EXPECT_NEAR(report["views"][0]["gain"][0].get<double>(), gain, 1e-9);
  EXPECT_NEAR(report["views"][1]["gain"][2].get<double>(), 1.0 / gain, 1e-9);
  cv::Mat const atlas = readImage(folder_ / "textured.png");
  cv::Vec3b const middle = atlas.at<cv::Vec3b>(atlas.rows / 2, atlas.cols / 2);
  EXPECT_EQ(middle, cv::Vec3b::all(static_cast<uchar>(std::lround(dark * gain))));
  EXPECT_NE(contentOf(output_).find("mtllib textured.mtl"), std::string::npos);
}

TEST_F(TextureCommand, LeavesPicturesAsTaken) {
  std::vector<std::string> options = both();
  options.insert(options.end(), {"--brightness", "as-taken", "--blend", "best"});
  nlohmann::json const report = reportOf(options);
  EXPECT_EQ(report["views"][0]["gain"][0], 1.0);
  cv::Mat const atlas = readImage(folder_ / "textured.png");
  EXPECT_EQ(atlas.at<cv::Vec3b>(atlas.rows / 2, atlas.cols / 2), cv::Vec3b::all(dark));
}

TEST_F(TextureCommand, TakesSingleViewsWithoutAFolder) {
  nlohmann::json const report = reportOf(left());
  ASSERT_EQ(report["views"].size(), 1U);
  EXPECT_EQ(report["unseenVertices"], 0);
  // The mesh is not in the camera's frame: it lies at the camera's place.
  std::vector<std::string> off = left();
  off.back() = "-";
  EXPECT_NE(texture(off).errors.find("No view sees"), std::string::npos);
}

// Views of a mesh that lies where floats cannot tell its places: the textured one lies there too.
TEST_F(TextureCommand, FarMeshesStayWhereTheyAre) {
  cv::Vec3d const far(5e8, -2e8, 0);
  graphic::GraphicObject object = readGraphic(mesh_);
  std::vector<cv::Vec3f> const places = object.vertices();
  object.offset() = far;
  writeGraphic(mesh_, object);
  cv::Matx44d camFromMesh = viewFromMesh(-10.0);
  cv::Matx44d near = cv::Matx44d::eye();
  for (int i = 0; i < 3; ++i) {
    near(i, 3) = -far[i];
  }
  camFromMesh = camFromMesh * near;
  nlohmann::json const pose = viewPosesJson({{"left", camFromMesh.inv(), "", ""}})["views"][0];
  put(folder_ / "pose.json", pose.dump());
  EXPECT_EQ(reportOf(left())["unseenVertices"], 0);
  // As the text of the file says it, whatever a reader makes of it.
  std::istringstream text(contentOf(output_));
  std::size_t count = 0;
  for (std::string line; std::getline(text, line);) {
    cv::Vec3d place;
    if (std::sscanf(line.c_str(), "v %lf %lf %lf", &place[0], &place[1], &place[2]) == 3) {
      auto const isHere = [&](cv::Vec3f const& p) { return cv::norm(place - far - cv::Vec3d(p)) < 1e-3; };
      ASSERT_TRUE(std::any_of(places.begin(), places.end(), isHere)) << line;
      ++count;
    }
  }
  EXPECT_GE(count, places.size());
}

TEST_F(TextureCommand, SaysWhichViewsLackWhat) {
  EXPECT_NE(texture({}).errors.find("no views"), std::string::npos);
  put(folder_ / "views.json", viewPosesJson({{"right", viewFromMesh(10.0).inv(), "", ""}}).dump());
  EXPECT_NE(texture({folder_ / ""}).errors.find("right names no camera"), std::string::npos);
  put(folder_ / "views.json",
      viewPosesJson({{"right", viewFromMesh(10.0).inv(), "fine.json", "gone.png"}}).dump());
  EXPECT_NE(texture({folder_ / ""}).errors.find("gone.png"), std::string::npos);
  writeImage(folder_ / "deep.png", cv::Mat(48, 64, CV_16UC1, cv::Scalar(900)));
  put(folder_ / "views.json",
      viewPosesJson({{"right", viewFromMesh(10.0).inv(), "fine.json", "deep.png"}}).dump());
  EXPECT_NE(texture({folder_ / ""}).errors.find("deep.png is not of 8 bits"), std::string::npos);
  put(folder_ / "pose.json", "{}");
  EXPECT_NE(texture(left()).errors.find("pose.json"), std::string::npos);
}

TEST_F(TextureCommand, ReadsAMotionInBothFormsAndRefusesWhatIsNone) {
  cv::Matx44d const pose = viewFromMesh(-10.0).inv();
  nlohmann::json const rows = viewPosesJson({{"left", pose, "", ""}})["views"][0]["commonFromView"];
  nlohmann::json const object = cv::Mat(pose);
  std::string first;
  for (char const* member : {"commonFromView", "targetFromSource"}) {
    for (nlohmann::json const& form : {rows, object}) {
      put(folder_ / "pose.json", nlohmann::json{{member, form}}.dump());
      reportOf(left());
      std::string const picture = contentOf(folder_ / "textured.png");
      first = first.empty() ? picture : first;
      EXPECT_EQ(picture, first) << member << form;
    }
  }
  auto const refusal = [&](cv::Matx44d const& motion) {
    put(folder_ / "pose.json", viewPosesJson({{"left", motion, "", ""}})["views"][0].dump());
    return texture(left()).errors;
  };
  EXPECT_NE(refusal(pose.t()).find("pose.json: \"commonFromView\" is no rigid motion: its last row"),
            std::string::npos)
      << refusal(pose.t());
  EXPECT_NE(refusal(cv::Matx44d::diag({1, 1, -1, 1})).find("is no rigid motion"), std::string::npos);
  for (char const* text :
       {R"([[1, 0, 0, 0], [0, 1, 0, 0], [0, 0, 1, 0]])", R"([1, 2])", R"({"rows": 4})", "7"}) {
    put(folder_ / "pose.json", std::string(R"({"targetFromSource": )") + text + "}");
    EXPECT_NE(texture(left()).errors.find("neither a list of four rows"), std::string::npos) << text;
  }
  // Of few digits: the nearest rotation.
  put(folder_ / "pose.json",
      R"({"commonFromView": [[0.98481, 0, -0.17365, 0], [0, 1, 0, 0], [0.17365, 0, 0.98481, 0], [0, 0, 0, 1]]})");
  EXPECT_EQ(readViewPose(folder_ / "pose.json")(0, 0), readViewPose(folder_ / "pose.json")(2, 2));
  EXPECT_NEAR(cv::determinant(readViewPose(folder_ / "pose.json")), 1.0, 1e-14);
  put(folder_ / "views.json", viewPosesJson({{"right", pose.t(), "fine.json", ""}}).dump());
  EXPECT_NE(texture({folder_ / ""}).errors.find("views.json: view right"), std::string::npos);
}

} // namespace
} // namespace vorn::tools
