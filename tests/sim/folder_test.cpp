// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <gtest/gtest.h>

#include <vorn/mv/core/matrix_json.hpp>

#include "sim/demo.hpp"
#include "sim/folder.hpp"

namespace vorn::sim {
namespace {

using nlohmann::json;

/// A folder of its own for each test, gone afterwards.
class Folders : public testing::Test {
protected:
  std::string const root_ =
      (std::filesystem::temp_directory_path() /
       (std::string("vorn_sim_") + testing::UnitTest::GetInstance()->current_test_info()->name()))
          .string();

  void SetUp() override { std::filesystem::remove_all(root_); }
  void TearDown() override { std::filesystem::remove_all(root_); }

  cv::Mat image(std::string const& name) const {
    return cv::imread(root_ + "/" + name, cv::IMREAD_UNCHANGED);
  }

  json document(std::string const& name) const {
    std::ifstream file(root_ + "/" + name);
    return json::parse(file);
  }

  int count(std::string const& stem) const {
    int number = 0;
    while (std::filesystem::exists(root_ + "/" + stem + (number < 10 ? "_0" : "_") + std::to_string(number) +
                                   ".png")) {
      ++number;
    }
    return number;
  }
};

TEST_F(Folders, AScanHoldsItsImagesAndItsTruth) {
  Rig const rig = demoRig(8);
  FolderOptions options;
  options.rows = true;
  std::vector<int> done;
  options.progress = [&done](int step, int total) { done.push_back(100 * step / total); };
  writeScanFolder(root_ + "/scan", rig, demoScene(), options);
  writeScannerTruth(root_ + "/scanner.json", rig);
  // A projector of 114 x 71 pixels: 28 stripes and 2 take 5 bits, 8 stripes and 2 take 4.
  EXPECT_EQ(count("scan/columns"), 4 + 5);
  EXPECT_EQ(count("scan/rows"), 4 + 4);
  EXPECT_EQ(done.back(), 100);

  cv::Mat const points = image("scan/truth_xyz.tiff");
  cv::Mat const projector = image("scan/truth_projector.tiff");
  cv::Mat const mask = image("scan/truth_mask.png");
  cv::Mat const levels = image("scan/truth_signal.png");
  ASSERT_EQ(points.type(), CV_32FC3);
  ASSERT_EQ(projector.type(), CV_32FC3);
  ASSERT_EQ(levels.type(), CV_16UC3);
  ASSERT_EQ(points.size(), rig.camera.device.resolution());
  // The documents and maps alone lead from a point to its projector coordinates.
  cv::Matx44d const cam_from_proj = document("scanner.json").at("Hpc").get<cv::Matx44d>();
  Device const& device = rig.projector.device;
  int clean = 0;
  for (int y = 0; y < mask.rows; ++y) {
    for (int x = 0; x < mask.cols; ++x) {
      cv::Vec3f const p = points.at<cv::Vec3f>(y, x);
      ASSERT_EQ(std::isnan(p[0]), mask.at<uchar>(y, x) == 0);
      if (mask.at<uchar>(y, x) != 255) {
        continue;
      }
      ++clean;
      cv::Vec4d const x_in_proj = cam_from_proj.inv() * cv::Vec4d(p[0], p[1], p[2], 1);
      auto const pixel = device.project({x_in_proj[0], x_in_proj[1], x_in_proj[2]});
      ASSERT_TRUE(pixel.has_value());
      cv::Vec3f const expected = projector.at<cv::Vec3f>(y, x);
      EXPECT_NEAR(pixel->x, static_cast<double>(expected[0]), 1e-3);
      EXPECT_NEAR(pixel->y, static_cast<double>(expected[1]), 1e-3);
      EXPECT_GE(levels.at<cv::Vec3w>(y, x)[0], 8 * 200);
    }
  }
  EXPECT_GT(clean, 3000);
}

TEST_F(Folders, TargetViewsNameTheDotsThatBothDevicesSee) {
  Rig const rig = demoRig(8);
  FolderOptions options;
  options.rows = true;
  options.render.supersample = 1;
  auto poses = demoTargetPoses();
  poses.resize(2);
  writeCalibrationFolder(root_, rig, demoTarget(), poses, options);
  EXPECT_EQ(count("pose_01/columns"), 9);
  EXPECT_EQ(count("pose_01/rows"), 8);
  EXPECT_NE(cv::norm(image("pose_00/target.png"), image("pose_01/target.png")), 0.0);
  json const views = document("truth_points.json").at("poses");
  ASSERT_EQ(views.size(), 2U);
  cv::Matx44d const cam_from_target = views[1].at("pose").get<cv::Matx44d>();
  int both = 0;
  for (json const& point : views[1].at("points")) {
    auto const pattern = point.at("pattern").get<cv::Point2d>();
    EXPECT_EQ(pattern, 15.0 * cv::Point2d(point.at("index").get<cv::Point>()));
    cv::Vec4d const p = cam_from_target * cv::Vec4d(pattern.x, pattern.y, 0, 1);
    auto const pixel = rig.camera.device.project({p[0], p[1], p[2]});
    both += point.contains("camera") && point.contains("projector") ? 1 : 0;
    EXPECT_NEAR(cv::norm(point.at("camera").get<cv::Point2d>() - *pixel), 0, 1e-9);
  }
  EXPECT_GT(both, 300);
}

TEST_F(Folders, StereoViewsFitTheWrittenTransform) {
  StereoRig const rig = demoStereoRig(4);
  FolderOptions options;
  options.render.supersample = 1;
  writeStereoFolder(root_, rig, demoTarget(), {demoTargetPoses()[1]}, options);
  writeStereoTruth(root_ + "/stereo.json", rig);
  EXPECT_FALSE(image("pose_00/target_1.png").empty());
  cv::Matx44d const cam0_from_cam1 = document("stereo.json").at("Hpc").get<cv::Matx44d>();
  json const view = document("truth_points.json").at("poses")[0];
  int both = 0;
  for (json const& point : view.at("points")) {
    if (point.contains("camera_1")) {
      auto const x = point.at("xyz").get<cv::Vec3d>();
      cv::Vec4d const p = cam0_from_cam1.inv() * cv::Vec4d(x[0], x[1], x[2], 1);
      auto const pixel = rig.camera1.device.project({p[0], p[1], p[2]});
      EXPECT_NEAR(cv::norm(point.at("camera_1").get<cv::Point2d>() - *pixel), 0, 1e-6);
      ++both;
    }
  }
  EXPECT_GT(both, 250);
}

TEST_F(Folders, LaserViewsLieOnTheWrittenPlane) {
  LaserRig const rig = demoLaserRig(4);
  FolderOptions options;
  options.render.supersample = 1;
  writeLaserScanFolder(root_, rig, demoScene(), {{0, 3, 0}, 2}, options);
  writeLaserCalibrationFolder(root_ + "/calib", rig, demoTarget(), {demoTargetPoses()[0]}, options);
  writeLaserTruth(root_ + "/laser.json", rig);
  EXPECT_EQ(count("line"), 2);
  EXPECT_EQ(count("calib/pose_00/line"), 1);
  EXPECT_EQ(document("stage.json").at("step").get<cv::Vec3d>(), cv::Vec3d(0, 3, 0));
  json const plane = document("laser.json").at("Plane_0");
  auto const lines = document("truth_points.json").at("lines");
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_GT(lines[1].size(), 120U);
  for (json const& point : lines[1]) {
    cv::Vec3d const x(point[2].get<double>(), point[3].get<double>(), point[4].get<double>());
    EXPECT_NEAR(plane.at("n").get<cv::Vec3d>().dot(x - plane.at("p").get<cv::Vec3d>()), 0, 1e-5);
  }
}

TEST_F(Folders, AFolderThatCannotBeMadeIsNamed) {
  std::ofstream(root_) << "a file in the way";
  try {
    writeScanFolder(root_ + "/scan", demoRig(16), demoScene());
    FAIL() << "wrote into a file";
  } catch (std::exception const& e) {
    EXPECT_NE(std::string(e.what()).find(root_), std::string::npos) << e.what();
  }
}

} // namespace
} // namespace vorn::sim
