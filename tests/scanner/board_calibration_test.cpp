// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/// A whole calibration from rendered chessboards, against the truth.

#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/core/library.hpp>
#include <vorn/mv/scanner/calibrate_stereo.hpp>

#include "sim/demo.hpp"
#include "sim/render.hpp"

namespace vorn::mv {
namespace {

constexpr std::size_t viewCount = 8;

TargetDescription boardDescription() {
  sim::DotGrid const grid = sim::demoChessboard().grid;
  TargetDescription target;
  target.kind = TargetKind::Chessboard;
  target.pitch = grid.pitch;
  target.size = {grid.columns.size(), grid.rows.size()};
  return target;
}

CalibrationSettings boardSettings() {
  CalibrationSettings settings;
  settings.target = boardDescription();
  return settings;
}

std::vector<sim::Pose> boardPoses() {
  std::vector<sim::Pose> poses = sim::demoTargetPoses(sim::demoChessboard());
  poses.resize(viewCount);
  return poses;
}

/// Angle in degrees and distance between two places of a device.
struct Offset {
  double degrees;
  double mm;
};

Offset offsetOf(cv::Matx44d const& found, sim::Pose const& truth) {
  cv::Matx33d const turn = cv::Matx33d(found.get_minor<3, 3>(0, 0)) * truth.rotation.t();
  cv::Vec3d const axis(turn(2, 1) - turn(1, 2), turn(0, 2) - turn(2, 0), turn(1, 0) - turn(0, 1));
  cv::Vec3d const shift = cv::Vec3d(found(0, 3), found(1, 3), found(2, 3)) - truth.translation;
  return {std::asin(std::min(1.0, 0.5 * cv::norm(axis))) * 180 / CV_PI, cv::norm(shift)};
}

/// What is found but for how much of the image so few views fill, and the views left out.
std::string said(Calibration const& calibration) {
  std::string text = calibration.report.notAdjusted;
  for (Finding const& finding : calibration.report.findings) {
    text += finding.cause == FindingCause::Coverage ? "" : finding.text + "\n";
  }
  for (CalibratedView const& view : calibration.views) {
    text += view.isUsed() ? "" : view.name + " left out: " + view.reason + "\n";
  }
  return text;
}

cv::Mat photoOf(sim::Camera const& camera, sim::Projector const& lamp, sim::Pose const& pose, int number) {
  cv::Mat const white(lamp.device.resolution(), CV_8U, cv::Scalar(255));
  sim::RenderOptions options;
  options.supersample = 1;
  return sim::ProjectorView(camera, lamp, sim::Scene({sim::targetObject(sim::demoChessboard(), pose)}),
                            options)
      .capture({white}, number)[0];
}

TEST(BoardCalibration, OfTwoCamerasIsRight) {
  Library::init();
  sim::StereoRig const rig = sim::demoStereoRig(2);
  std::vector<StereoView> views;
  for (sim::Pose const& pose : boardPoses()) {
    auto const number = static_cast<int>(2 * views.size());
    views.push_back(
        {"pose_" + std::to_string(views.size()),
         {photoOf(rig.camera0, rig.lamp, pose, number), photoOf(rig.camera1, rig.lamp, pose, number + 1)}});
  }
  StereoCalibration const calibration = calibrateStereo(views, boardSettings());
  EXPECT_EQ(said(calibration), "");
  ASSERT_TRUE(calibration.report.adjustment);
  EXPECT_LT(calibration.report.adjustment->s0, 1.3);
  Offset const offset = offsetOf(calibration.object.getTransform(), rig.camera1.cam_from_world.inverse());
  EXPECT_LT(offset.degrees, 0.02);
  EXPECT_LT(offset.mm, 0.15);
  EXPECT_NEAR(calibration.object.getCameraModel0().getK().at<double>(0, 0), rig.camera0.device.focal().x,
              0.5);
  EXPECT_NEAR(calibration.object.getCameraModel1().getK().at<double>(0, 0), rig.camera1.device.focal().x,
              0.5);
}

} // namespace
} // namespace vorn::mv
