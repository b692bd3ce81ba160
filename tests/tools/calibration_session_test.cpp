// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/core/library.hpp>

#include "sim/demo.hpp"
#include "sim/folder.hpp"
#include "support/expect_error.hpp"
#include "support/temporary_folder.hpp"
#include "tools/calibration/calibration_report.hpp"
#include "tools/calibration/folder_calibration.hpp"
#include "tools/calibration/residual_plots.hpp"
#include "tools/commands/size_option.hpp"
#include "tools/files/image_files.hpp"

namespace vorn::test {
namespace {

namespace fs = std::filesystem;

/// A folder of target views, rendered once.
class CalibrationSession : public testing::Test {
protected:
  static void SetUpTestSuite() {
    mv::Library::init();
    folder = new TemporaryFolder;
    sim::FolderOptions options;
    options.rows = true;
    options.truth = false;
    options.render.supersample = 1; // dots are drawn exactly whatever the number of rays
    std::vector<sim::Pose> poses = sim::demoTargetPoses();
    poses.resize(6);
    sim::writeCalibrationFolder((*folder / "calib").string(), rig(), sim::demoTarget(), poses, options);
  }
  static void TearDownTestSuite() { delete folder; }

  static sim::Rig rig() { return sim::demoRig(2); }

  static mv::CalibrationSettings settings() {
    mv::CalibrationSettings settings;
    settings.detector["PatternDim"] = 15.0;
    settings.detector["MinDotArea"] = 20.0;
    return settings;
  }

  static fs::path pose(int number) { return *folder / "calib" / ("pose_0" + std::to_string(number)); }

  static TemporaryFolder* folder;
};

TemporaryFolder* CalibrationSession::folder = nullptr;

TEST_F(CalibrationSession, RecoversTheRig) {
  mv::ScannerCalibration const calibration = tools::calibrateScanner(folder->path().string(), settings());
  mv::CameraModel const& camera = calibration.object.getCameraModel();
  mv::CameraModel const& projector = calibration.object.getProjectorModel();
  EXPECT_EQ(camera.getResolution(), rig().camera.device.resolution());
  EXPECT_LT(camera.getCalibError(), 0.05);
  EXPECT_LT(projector.getCalibError(), 0.08);
  constexpr double relative = 2e-3; // six views of a target that fills the image
  EXPECT_NEAR(camera.getK().at<double>(0, 0) / rig().camera.device.focal().x, 1, relative);
  EXPECT_NEAR(projector.getK().at<double>(0, 0) / rig().projector.device.focal().x, 1, relative);
  cv::Vec3d const expected = rig().projector.world_from_proj.translation;
  cv::Matx44d const found = calibration.object.getTransform();
  EXPECT_LT(cv::norm(expected - cv::Vec3d(found(0, 3), found(1, 3), found(2, 3))), 2.0) << "mm";
  nlohmann::json const report = mv::toJson(calibration);
  EXPECT_EQ(report.at("views").size(), 6U);
  EXPECT_EQ(report.at("camera").at("rms").get<double>(), camera.getCalibError());
  std::vector<mv::Plot> const plots = tools::viewErrorPlots(calibration, mv::Ground::Light, 6);
  ASSERT_EQ(plots.size(), 12U);
  EXPECT_EQ(plots[7].title.substr(0, 18), "pose_03, projector");
  for (std::size_t d = 0; d < 2; ++d) {
    double squares = 0.0;
    std::size_t count = 0;
    double const error = calibration.report.devices[d].rms;
    for (std::size_t v = 0; v < 6; ++v) {
      mv::Plot const& plot = plots[2 * v + d];
      mv::PlotSeries const& arrows = plot.series[0];
      count += arrows.dx.size();
      for (std::size_t i = 0; i < arrows.dx.size(); ++i) {
        squares += arrows.dx[i] * arrows.dx[i] + arrows.dy[i] * arrows.dy[i];
      }
      EXPECT_GT(plot.arrowSample, 0.8 * error) << "the scale is an arrow that is seen";
      EXPECT_LT(plot.arrowSample, 3.0 * error);
      EXPECT_EQ(plot.arrowScale, plots[d].arrowScale) << "one scale for all views";
    }
    EXPECT_NEAR(std::sqrt(squares / static_cast<double>(count)), error, 1e-4 * error);
  }
}

TEST_F(CalibrationSession, LeavesOutBadViewsAndSaysWhy) {
  TemporaryFolder spoiled;
  fs::copy(*folder / "calib", spoiled.path(), fs::copy_options::recursive);
  cv::Mat const blank(rig().camera.device.resolution(), CV_8U, cv::Scalar(60));
  tools::writeImage((spoiled / "pose_01" / "target.png").string(), blank);
  fs::remove(spoiled / "pose_02" / "rows_03.png");
  tools::writeImage((spoiled / "pose_03" / "target.png").string(), blank.colRange(0, 99));
  auto const calibration = tools::calibrateScanner(spoiled.path().string(), settings());
  EXPECT_EQ(calibration.views[0].reason, "");
  EXPECT_NE(calibration.views[1].reason.find("no target"), std::string::npos);
  EXPECT_NE(calibration.views[2].reason.find("rows_03.png is missing"), std::string::npos);
  EXPECT_NE(calibration.views[3].reason.find("the target image is 99 x"), std::string::npos);
  std::string const table = tools::table(calibration);
  EXPECT_NE(table.find("pose_01         left out: no target"), std::string::npos) << table;
  auto const noise = table.find("noise of a point ");
  ASSERT_NE(noise, std::string::npos) << table;
  double camera = 0;
  double projector = 0;
  ASSERT_EQ(std::sscanf(table.c_str() + noise, "noise of a point %lf px, %lf px in the projector", &camera,
                        &projector),
            2)
      << table;
  constexpr double digit = 5.01e-5; // half of the last one that is shown
  EXPECT_NEAR(camera, calibration.report.adjustment->noise.camera0, digit);
  EXPECT_NEAR(projector, calibration.report.adjustment->noise.camera1, digit);
  fs::remove(spoiled / "pose_05" / "target.png");
  expectError([&] { tools::calibrateScanner(spoiled.path().string(), settings()); },
              "Only 2 of 6 views can be used, and a calibration takes 3; pose_01: no target found in the "
              "target image, or "
              "fewer than MinKeypointCount dots of MinDotArea to MaxDotArea pixels; pose_02: ");
}

TEST_F(CalibrationSession, RefusesViewsThatFitEachDeviceButNotBoth) {
  TemporaryFolder exchanged;
  TemporaryFolder mirrored;
  for (int i = 0; i < 3; ++i) {
    fs::path const name = pose(i).filename();
    fs::create_directory(exchanged / name);
    fs::create_directory(mirrored / name);
    for (auto const& entry : fs::directory_iterator(pose(i))) {
      std::string const file = entry.path().filename().string();
      std::string const number = file.substr(file.rfind('_') + 1);
      bool const isColumn = file.rfind("columns", 0) == 0;
      bool const isRow = file.rfind("rows", 0) == 0;
      fs::copy(entry, exchanged / name / (isColumn ? "rows_" + number : isRow ? "columns_" + number : file));
      cv::Mat image = tools::readGrayImage(entry.path().string());
      cv::flip(image, image, 1);
      tools::writeImage((mirrored / name / file).string(), image);
    }
  }
  for (auto const& [spoiled, text] :
       {std::pair(&exchanged, "columns and rows are exchanged, and so in 3 of 3 views"),
        std::pair(&mirrored, "of the camera or of the projector are mirrored, and so in 3 of 3 views")}) {
    expectError([&] { tools::calibrateScanner(spoiled->path().string(), settings()); }, text);
  }
}

TEST_F(CalibrationSession, RefusesFoldersThatCannotServe) {
  TemporaryFolder const empty;
  expectError([&] { tools::calibrateScanner(empty.path().string(), settings()); }, "no folders pose_00");
  expectError([&] { tools::calibrateScanner((empty / "nowhere").string(), settings()); }, "nowhere");
  for (char const* name : {"pose_00", "pose_01", "pose_02"}) {
    fs::create_directory(empty / name);
  }
  std::ofstream(empty / "pose_01/target.png") << "no picture";
  expectError([&] { tools::calibrateScanner(empty.path().string(), settings()); },
              "Only 0 of 3 views can be used, and a calibration takes 3; pose_00, pose_02: There is no "
              "target.png in its folder: --target-image names another picture; pose_01: target.png is not a "
              "picture that can be read");
  TemporaryFolder alike;
  for (int i = 0; i < 3; ++i) {
    fs::copy(pose(0), alike / ("pose_0" + std::to_string(i)), fs::copy_options::recursive);
  }
  expectError([&] { tools::calibrateScanner(alike.path().string(), settings()); },
              "focal length undetermined");
  expectError([] { tools::parsePixels("640.5x400", "--projector"); }, "whole pixels");
  expectError([] { tools::parsePixels("0.4x400", "--projector"); }, "whole pixels");
  expectError([] { tools::parsePixels("64000x400", "--projector"); }, "whole pixels");
}

} // namespace
} // namespace vorn::test
