// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/// Calibrations from described targets: unmarked grids, chessboards, deep images.

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/core/library.hpp>
#include <vorn/mv/scanner/calibrate_camera.hpp>
#include <vorn/mv/scanner/calibrate_stereo.hpp>

#include "sim/demo.hpp"
#include "sim/target_photo.hpp"
#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

using vorn::test::expectError;

class TargetKindsTest : public testing::Test {
protected:
  static void SetUpTestSuite() { Library::init(); }
};

sim::Device const& device() {
  static sim::Device const result = sim::demoRig(2).camera.device;
  return result;
}

/// A photograph of dots at columns x rows places whose first is index (0, 0), without marks.
cv::Mat photoOf(cv::Size const& places, sim::Pose const& cam_from_target, std::uint64_t seed) {
  sim::TargetPhoto photo;
  photo.device = device();
  photo.target.grid = {15, {0, places.width}, {0, places.height}, 0.85, false};
  photo.cam_from_target = cam_from_target;
  photo.noise = 1;
  photo.seed = seed;
  return sim::render(photo);
}

TargetDescription plate(cv::Size const& size) {
  TargetDescription target;
  target.pitch = 15;
  target.size = size;
  return target;
}

CalibrationSettings settingsFor(TargetDescription const& target) {
  CalibrationSettings settings;
  settings.target = target;
  return settings;
}

/// Poses of a plate of size x size mm before the first camera: tilted to different sides, and turned in its
/// plane, so that each camera counts some of them another way.
std::vector<sim::Pose> platePoses(double size) {
  cv::Point2d const middle(size / 2, size / 2);
  return {sim::viewOf(middle, 560, 4, 10, 3), sim::viewOf(middle, 600, 25, 40, 38),
          sim::viewOf(middle, 580, 28, 150, -41), sim::viewOf(middle, 540, 22, 250, 95),
          sim::viewOf(middle, 620, 30, 320, 170)};
}

/// Both cameras' pictures of a square plate.
std::vector<StereoView> squareViews(int size, sim::Pose const& cam1_from_cam0) {
  std::vector<StereoView> views;
  std::uint64_t seed = 1;
  for (sim::Pose const& pose : platePoses(15.0 * (size - 1))) {
    StereoView view;
    view.name = "view " + std::to_string(views.size());
    view.images = {photoOf({size, size}, pose, seed), photoOf({size, size}, cam1_from_cam0 * pose, seed + 1)};
    seed += 2;
    views.push_back(view);
  }
  return views;
}

TEST_F(TargetKindsTest, TwoCamerasCountASquareGridAlike) {
  // The second camera lies on its side, so that what runs along its columns runs along the first one's rows.
  sim::Pose const cam0_from_cam1 =
      sim::Pose::fromDegrees({150, 10, 15}, {1, -15, 0}) * sim::Pose::fromDegrees({}, {0, 0, 84});
  sim::Pose const cam1_from_cam0 = cam0_from_cam1.inverse();
  constexpr int size = 11;
  std::vector<StereoView> const views = squareViews(size, cam1_from_cam0);
  StereoCalibration const calibration = calibrateStereo(views, settingsFor(plate({size, size})));
  for (CalibratedView const& view : calibration.views) {
    EXPECT_TRUE(view.isUsed()) << view.name << ": " << view.reason;
    EXPECT_LT(rms(view.devices.at(1).jointResiduals), 0.2) << view.name;
  }
  cv::Matx44d const found = calibration.object.getTransform();
  EXPECT_LT(cv::norm(cv::Vec3d(found(0, 3), found(1, 3), found(2, 3)) - cam0_from_cam1.translation), 2);
  EXPECT_LT(cv::norm(cv::Matx33d(found.get_minor<3, 3>(0, 0)) - cam0_from_cam1.rotation), 0.02);
}

TEST_F(TargetKindsTest, DotsThatCannotBeToldApartKeepNoDeviations) {
  constexpr int size = 11;
  TargetDescription target = plate({size, size});
  target.deviations = {{{3, 4}, {0.05, 0}}};
  std::vector<CameraView> views;
  for (sim::Pose const& pose : platePoses(150)) {
    views.push_back({"view " + std::to_string(views.size()), photoOf({size, size}, pose, 1)});
  }
  expectError([&] { calibrateCamera(views, settingsFor(target)); }, "it looks the same turned");
  target.pitch = -1;
  expectError([&] { calibrateCamera(views, settingsFor(target)); }, "pitch of a target is -1");
  CalibrationSettings settings = settingsFor(plate({size, size}));
  settings.detect.minDotRatio = 2;
  expectError([&] { calibrateCamera(views, settings); }, "minDotRatio is 2");
}

/// A chessboard of columns x rows inner corners seen by a camera, 16 bits of which 12 are used.
cv::Mat chessboardPhoto(cv::Size const& corners, double square, sim::Pose const& cam_from_target) {
  constexpr int pixels = 30;                                     // a square of the drawing
  cv::Size const squares(corners.width + 3, corners.height + 3); // with a white rim
  cv::Mat board(squares * pixels, CV_16UC1, cv::Scalar(3600));
  for (int y = 1; y < squares.height - 1; ++y) {
    for (int x = 1; x < squares.width - 1; ++x) {
      if ((x + y) % 2 == 0) {
        board(cv::Rect(x * pixels, y * pixels, pixels, pixels)).setTo(300);
      }
    }
  }
  // The first inner corner is at (0, 0) of the target and between pixels 2 * pixels - 1 and 2 * pixels of the
  // drawing.
  double const scale = square / pixels;
  double const shift = (0.5 - 2 * pixels) * scale;
  cv::Matx33d const r = cam_from_target.rotation;
  cv::Vec3d const t = cam_from_target.translation;
  cv::Matx33d const plane(r(0, 0), r(0, 1), t[0], r(1, 0), r(1, 1), t[1], r(2, 0), r(2, 1), t[2]);
  cv::Matx33d const K(750, 0, 320, 0, 750, 240, 0, 0, 1);
  cv::Mat photo;
  cv::warpPerspective(board, photo, K * plane * cv::Matx33d(scale, 0, shift, 0, scale, shift, 0, 0, 1),
                      cv::Size(640, 480), cv::INTER_AREA, cv::BORDER_CONSTANT, cv::Scalar(1800));
  cv::GaussianBlur(photo, photo, cv::Size(), 0.7);
  return photo;
}

TEST_F(TargetKindsTest, ACameraIsCalibratedFromDeepImagesOfAChessboard) {
  TargetDescription target = plate({9, 6});
  target.kind = TargetKind::Chessboard;
  cv::Point2d const middle(60, 37);
  std::vector<CameraView> views;
  for (sim::Pose const& pose :
       {sim::viewOf(middle, 300, 5, 0, 0), sim::viewOf(middle, 320, 30, 60, 10),
        sim::viewOf(middle, 310, 28, 180, -15), sim::viewOf(middle, 330, 32, 280, 5)}) {
    views.push_back({"view " + std::to_string(views.size()), chessboardPhoto({9, 6}, 15, pose)});
  }
  CameraCalibration const calibration = calibrateCamera(views, settingsFor(target));
  EXPECT_EQ(calibration.views[0].devices.at(0).imgPnts.size(), 54U);
  EXPECT_NEAR(calibration.object.getK().at<double>(0, 0), 750, 4);
  EXPECT_NEAR(calibration.object.getK().at<double>(0, 2), 320, 3);
  EXPECT_LT(calibration.report.devices.at(0).rms, 0.05);
}

TEST_F(TargetKindsTest, TwoCamerasCountAChessboardAlikeOfWhichOneHangsUpsideDown) {
  sim::Pose const cam0_from_cam1 =
      sim::Pose::fromDegrees({60, 5, 5}, {1, -10, 0}) * sim::Pose::fromDegrees({}, {0, 0, 178});
  sim::Pose const cam1_from_cam0 = cam0_from_cam1.inverse();
  // Half a turn exchanges the colours of the first board; the second one looks the same, and all views
  // together tell.
  for (cv::Size const& corners : {cv::Size(9, 6), cv::Size(8, 6)}) {
    TargetDescription target = plate(corners);
    target.kind = TargetKind::Chessboard;
    cv::Point2d const middle(60, 37);
    std::vector<StereoView> views;
    for (sim::Pose const& pose :
         {sim::viewOf(middle, 330, 5, 0, 0), sim::viewOf(middle, 340, 30, 60, 95),
          sim::viewOf(middle, 330, 28, 180, 170), sim::viewOf(middle, 350, 32, 280, 5)}) {
      StereoView view;
      view.name = "view " + std::to_string(views.size());
      view.images = {chessboardPhoto(corners, 15, pose), chessboardPhoto(corners, 15, cam1_from_cam0 * pose)};
      views.push_back(view);
    }
    StereoCalibration const calibration = calibrateStereo(views, settingsFor(target));
    for (CalibratedView const& view : calibration.views) {
      EXPECT_TRUE(view.isUsed()) << corners << ' ' << view.name << ": " << view.reason;
    }
    cv::Matx44d const found = calibration.object.getTransform();
    EXPECT_LT(cv::norm(cv::Vec3d(found(0, 3), found(1, 3), found(2, 3)) - cam0_from_cam1.translation), 2)
        << corners;
    EXPECT_LT(cv::norm(cv::Matx33d(found.get_minor<3, 3>(0, 0)) - cam0_from_cam1.rotation), 0.02) << corners;
  }
}

} // namespace
} // namespace vorn::mv
