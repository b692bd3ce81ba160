// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/// Whole calibrations from rendered chessboards, against the truth.

#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/core/library.hpp>
#include <vorn/mv/scanner/calibrate_scanner.hpp>
#include <vorn/mv/scanner/calibrate_stereo.hpp>
#include <vorn/mv/scanner/point_uncertainty.hpp>

#include "calib/adjustment_runs.hpp"
#include "sim/demo.hpp"
#include "sim/faults.hpp"
#include "sim/render.hpp"
#include "support/scanner_rig.hpp"

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

/// A view of the chessboard by a camera and a projector.
ScannerView viewOf(sim::Rig const& rig, sim::Pose const& pose, int number) {
  constexpr int imagesPerView = 100;
  sim::RenderOptions options;
  options.supersample = 1;
  sim::ViewImages images =
      taken(sim::plannedCampaign(rig, sim::demoChessboard(), {pose}).views[0],
            test::patternsOf(rig, scanner::ScannerType(scanner::ScannerType::Horizontal)),
            test::patternsOf(rig, scanner::ScannerType(scanner::ScannerType::Vertical)),
            number * imagesPerView, options);
  return {"pose_" + std::to_string(number), images.target, images.columns, images.rows};
}

WorkingVolume const volume{510, 620};

/// What points that both devices see in the volume are off by after the best rigid motion, root mean square
/// in mm.
double rigidError(Sl3dScanner const& scanner, sim::Rig const& rig) {
  constexpr std::size_t count = 300;
  PointUncertainty const uncertainty(scanner);
  sim::Pose const proj_from_world = rig.projector.world_from_proj.inverse();
  cv::RNG rng(3);
  std::vector<cv::Vec3d> places;
  std::vector<cv::Vec3d> found;
  while (places.size() < count) {
    cv::Size const size = rig.camera.device.resolution();
    cv::Point2d const pixel(rng.uniform(0.0, size.width - 1.0), rng.uniform(0.0, size.height - 1.0));
    cv::Vec3d const ray = rig.camera.device.ray(pixel);
    cv::Vec3d const place = ray * (rng.uniform(volume.nearest, volume.farthest) / ray[2]);
    auto const light = rig.projector.device.project(proj_from_world * place);
    if (light && rig.projector.device.contains(*light)) {
      places.push_back(place);
      found.emplace_back(uncertainty.at({pixel, light->x, 0}).point);
    }
  }
  return std::sqrt(vorn::test::errorsOf(found, places).rigid2);
}

TEST(BoardCalibration, OfAScannerIsAsGoodAsItSays) {
  Library::init();
  sim::Rig const rig = sim::demoRig(2);
  std::vector<ScannerView> views;
  for (sim::Pose const& pose : boardPoses()) {
    views.push_back(viewOf(rig, pose, static_cast<int>(views.size())));
  }
  CalibrationSettings settings = boardSettings();
  settings.projector = rig.projector.device.resolution();
  ScannerCalibration const calibration = calibrateScanner(views, settings);
  EXPECT_EQ(said(calibration), "");
  for (CalibratedView const& view : calibration.views) {
    EXPECT_GE(view.devices.at(1).imgPnts.size() + 3, view.devices.at(0).imgPnts.size()) << view.name;
  }
  double const predicted = PointUncertainty(calibration.object).over(volume).rigid;
  EXPECT_LT(predicted, 0.1);
  EXPECT_LT(rigidError(calibration.object, rig), 2 * predicted);
  EXPECT_GT(rigidError(calibration.object, rig), 0.2 * predicted);
  Offset const offset = offsetOf(calibration.object.getTransform(), rig.projector.world_from_proj);
  EXPECT_LT(offset.degrees, 0.03);
  EXPECT_LT(offset.mm, 0.3);
}

} // namespace
} // namespace vorn::mv
