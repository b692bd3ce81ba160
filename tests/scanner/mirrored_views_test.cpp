// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/// Mirrored images and changed lenses in the calibrations of one camera and of two, from photographs.

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/core/library.hpp>
#include <vorn/mv/scanner/calibrate_camera.hpp>
#include <vorn/mv/scanner/calibrate_stereo.hpp>

#include "sim/demo.hpp"
#include "sim/target_photo.hpp"
#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

using vorn::test::expectError;

sim::Device const& firstCamera() {
  static sim::Device const device = sim::demoRig(2).camera.device;
  return device;
}

sim::Device const& secondCamera() {
  static sim::Device const device = sim::demoStereoRig(2).camera1.device;
  return device;
}

sim::Pose cam1_from_cam0() {
  return sim::Pose::fromDegrees({168, -5, 22}, {0.9, -16.5, 0.6}).inverse();
}

sim::Device zoomed(sim::Device const& device, double factor) {
  return {device.focal() * factor, device.centre(), device.distortion(), device.resolution()};
}

cv::Mat photoOf(sim::Device const& device, sim::Pose const& cam_from_target, std::uint64_t seed) {
  sim::TargetPhoto photo;
  photo.device = device;
  photo.target = sim::demoTarget();
  photo.cam_from_target = cam_from_target;
  photo.noise = 1;
  photo.seed = seed;
  return sim::render(photo);
}

cv::Mat mirroredAlong(int flipCode, cv::Mat const& image) {
  cv::Mat mirrored;
  cv::flip(image, mirrored, flipCode);
  return mirrored;
}

std::vector<CameraView> const& cameraViews() {
  static std::vector<CameraView> const views = [] {
    Library::init();
    std::vector<CameraView> result;
    for (sim::Pose const& pose : sim::demoTargetPoses()) {
      std::uint64_t const number = result.size();
      result.push_back({"pose_" + std::to_string(number), photoOf(secondCamera(), pose, number + 1)});
    }
    return result;
  }();
  return views;
}

std::vector<StereoView> const& stereoViews() {
  static std::vector<StereoView> const views = [] {
    Library::init();
    std::vector<StereoView> result;
    for (sim::Pose const& pose : sim::demoTargetPoses()) {
      std::uint64_t const number = result.size();
      result.push_back({"pose_" + std::to_string(number),
                        {photoOf(firstCamera(), pose, 2 * number + 1),
                         photoOf(secondCamera(), cam1_from_cam0() * pose, 2 * number + 2)}});
    }
    return result;
  }();
  return views;
}

CalibrationSettings settings() {
  CalibrationSettings result;
  TargetDescription target;
  target.pitch = sim::demoTarget().grid.pitch;
  target.marks = {{0, 0}, {1, 0}, {0, 1}};
  result.target = target;
  return result;
}

/// The views that are said to be mirrored, and whether each was left out.
std::vector<int> mirroredIn(Calibration const& calibration) {
  std::vector<int> views;
  for (Finding const& finding : calibration.report.findings) {
    if (finding.cause == FindingCause::Mirrored) {
      views.push_back(finding.view);
      EXPECT_FALSE(calibration.views[static_cast<std::size_t>(finding.view)].isUsed());
      EXPECT_NE(calibration.views[static_cast<std::size_t>(finding.view)].reason.find("mirrored"),
                std::string::npos);
    }
  }
  std::sort(views.begin(), views.end());
  return views;
}

std::string said(Calibration const& calibration) {
  std::string text;
  for (Finding const& finding : calibration.report.findings) {
    text += finding.text + "\n";
  }
  for (CalibratedView const& view : calibration.views) {
    text += view.isUsed() ? "" : view.name + " left out: " + view.reason + "\n";
  }
  return text;
}

bool isUntested(Calibration const& calibration, FindingCause cause) {
  auto const& untested = calibration.report.untested;
  return std::find(untested.begin(), untested.end(), cause) != untested.end();
}

TEST(MirroredViews, OfOneCameraAreNamedAndLeftOut) {
  CameraCalibration const sound = calibrateCamera(cameraViews(), settings());
  EXPECT_EQ(said(sound), "");
  EXPECT_TRUE(isUntested(sound, FindingCause::Mirrored)) << "all of them may be";
  EXPECT_FALSE(isUntested(sound, FindingCause::FocusChanged));
  for (std::vector<int> const& mirrored : std::vector<std::vector<int>>{{3}, {1, 6}}) {
    std::vector<CameraView> views = cameraViews();
    for (int const view : mirrored) {
      cv::Mat& image = views[static_cast<std::size_t>(view)].target;
      image = mirroredAlong(1, image);
    }
    CameraCalibration const calibration = calibrateCamera(views, settings());
    EXPECT_EQ(mirroredIn(calibration), mirrored) << said(calibration);
    ASSERT_TRUE(calibration.report.adjustment);
    EXPECT_LT(calibration.report.adjustment->s0, 1.3);
    EXPECT_EQ(calibration.report.adjustment->views.size(), views.size() - mirrored.size());
  }
}

TEST(MirroredViews, AChangedZoomOfOneCameraIsRefused) {
  std::vector<CameraView> views = cameraViews();
  for (std::size_t i = 4; i < views.size(); ++i) {
    views[i].target = photoOf(zoomed(secondCamera(), 1.01), sim::demoTargetPoses()[i], i + 100);
  }
  expectError([&] { calibrateCamera(views, settings()); },
              "Focus or zoom of the camera changed before pose_4");
  CalibrationSettings keeping = settings();
  keeping.isRefused = false;
  CameraCalibration const kept = calibrateCamera(views, keeping);
  ASSERT_EQ(kept.report.findings.size(), 1U) << said(kept);
  EXPECT_EQ(nameOf(kept.report.findings[0].cause), "focusChanged");
}

TEST(MirroredViews, OfTwoCamerasAreNamedAndLeftOut) {
  EXPECT_EQ(said(calibrateStereo(stereoViews(), settings())), "");
  for (std::size_t const camera : {0U, 1U}) {
    std::vector<StereoView> views = stereoViews();
    views[2].images[camera] = mirroredAlong(camera == 0 ? 1 : 0, views[2].images[camera]);
    StereoCalibration const calibration = calibrateStereo(views, settings());
    EXPECT_EQ(mirroredIn(calibration), std::vector<int>{2}) << said(calibration);
    ASSERT_TRUE(calibration.report.adjustment);
    EXPECT_LT(calibration.report.adjustment->s0, 1.3);
    for (std::size_t i = 0; i < views.size(); ++i) {
      views[i].images[camera] = mirroredAlong(1, stereoViews()[i].images[camera]);
    }
    expectError([&] { calibrateStereo(views, settings()); },
                "The images of one of the two cameras are mirrored");
  }
}

TEST(MirroredViews, AChangedZoomOfOneOfTwoCamerasIsRefused) {
  std::vector<StereoView> views = stereoViews();
  for (std::size_t i = 5; i < views.size(); ++i) {
    views[i].images[1] =
        photoOf(zoomed(secondCamera(), 1.01), cam1_from_cam0() * sim::demoTargetPoses()[i], i + 200);
  }
  expectError([&] { calibrateStereo(views, settings()); }, "Focus or zoom of camera 1 changed before pose_5");
}

} // namespace
} // namespace vorn::mv
