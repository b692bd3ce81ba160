// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <filesystem>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/core/library.hpp>
#include <vorn/mv/geometry/transform.hpp>

#include "sim/demo.hpp"
#include "sim/folder.hpp"
#include "support/expect_error.hpp"
#include "support/temporary_folder.hpp"
#include "tools/calibration/calibration_report.hpp"
#include "tools/calibration/folder_calibration.hpp"

namespace vorn::test {
namespace {

namespace fs = std::filesystem;

class StereoSession : public testing::Test {
protected:
  static void SetUpTestSuite() {
    mv::Library::init();
    folder = new TemporaryFolder;
    std::vector<sim::Pose> poses = sim::demoTargetPoses();
    poses.resize(6);
    sim::FolderOptions options;
    options.truth = false;
    options.render.supersample = 1; // dots are drawn exactly whatever the number of rays
    sim::writeStereoFolder((*folder / "calib").string(), rig(), sim::demoTarget(), poses, options);
  }
  static void TearDownTestSuite() { delete folder; }

  static sim::StereoRig rig() { return sim::demoStereoRig(2); }

  static mv::CalibrationSettings settings() {
    mv::CalibrationSettings settings;
    settings.detector["PatternDim"] = 15.0;
    settings.detector["MinDotArea"] = 20.0;
    return settings;
  }

  static TemporaryFolder* folder;
};

TemporaryFolder* StereoSession::folder = nullptr;

TEST_F(StereoSession, RecoversWhereTheCamerasStand) {
  auto const calibration = tools::calibrateStereo(folder->path().string(), settings());
  sim::Pose const cam0_from_cam1 = rig().camera0.cam_from_world * rig().camera1.cam_from_world.inverse();
  cv::Matx44d const& found = calibration.object.getTransform();
  // Six views of coarse pixels: the poses of a view agree to a millimetre or so along the axis.
  constexpr double mostShift = 1.0;        // mm, of a baseline of 170
  constexpr double mostTurn = 0.1;         // degrees
  constexpr double mostNonRotation = 1e-4; // a mean of rotations scattering by less than half a degree
  EXPECT_LT(cv::norm(cam0_from_cam1.translation - mv::math::getT3(found)), mostShift);
  cv::Matx33d const turn = cam0_from_cam1.rotation.t() * mv::math::getR3(found);
  cv::Vec3d const axis(turn(2, 1) - turn(1, 2), turn(0, 2) - turn(2, 0), turn(1, 0) - turn(0, 1));
  EXPECT_LT(cv::norm(axis) / 2 * 180 / CV_PI, mostTurn);
  EXPECT_LT(calibration.report.rotationDefect, mostNonRotation);

  nlohmann::json const report = mv::toJson(calibration);
  for (char const* camera : {"camera", "camera_1"}) {
    EXPECT_LT(report.at(camera).at("rms").get<double>(), 0.05) << camera;
    // The mean transform fits no view as well as the view's own pose.
    EXPECT_GT(report.at(camera).at("jointRms"), report.at(camera).at("rms")) << camera;
    EXPECT_LT(report.at(camera).at("jointRms").get<double>(), 0.5) << camera;
  }
}

TEST_F(StereoSession, AViewThatOneCameraCannotUseIsLeftOutForBoth) {
  TemporaryFolder spoiled;
  fs::copy(*folder / "calib", spoiled.path(), fs::copy_options::recursive);
  fs::remove(spoiled / "pose_01" / "target_1.png");
  auto const calibration = tools::calibrateStereo(spoiled.path().string(), settings());
  EXPECT_NE(calibration.views[1].reason.find("target_1.png"), std::string::npos);
  EXPECT_EQ(calibration.views[2].reason, "");
  EXPECT_LT(calibration.report.rotationDefect, 1e-4) << "the views that are left must pair up";
  for (int i = 2; i < 5; ++i) {
    fs::remove(spoiled / ("pose_0" + std::to_string(i)) / "target.png");
  }
  expectError([&] { tools::calibrateStereo(spoiled.path().string(), settings()); }, "pose_04: ");
}

} // namespace
} // namespace vorn::test
