// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/calibrate_rig.hpp>

#include <algorithm>
#include <array>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/calib/calibration_covariance.hpp>

#include "scanner/rendered_view.hpp"
#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

using vorn::test::expectError;

/// Poses in which both cameras see the target's markers.
constexpr std::array<std::size_t, 6> poses = {0, 2, 4, 7, 9, 11};
constexpr std::size_t viewCount = poses.size();
constexpr int divisor = 3;

sim::Rig rigOf(std::size_t camera) {
  return camera == 0 ? sim::demoRig(divisor) : sim::demoSecondRig(divisor);
}

/// Views of the demonstration's target by both cameras, rendered once.
std::vector<RigView> const& renderedViews() {
  static std::vector<RigView> const views = [] {
    Library::init();
    std::vector<RigView> result;
    for (std::size_t i = 0; i < viewCount; ++i) {
      sim::Pose const pose = sim::demoTargetPoses()[poses[i]];
      RigView view{"view " + std::to_string(i), {}};
      for (std::size_t camera = 0; camera < 2; ++camera) {
        view.cameras.push_back(test::renderedView(rigOf(camera), pose, ""));
      }
      result.push_back(view);
    }
    return result;
  }();
  return views;
}

CalibrationSettings settings() {
  CalibrationSettings result = test::halfRigSettings();
  result.detector["MinDotArea"] = 10.0;
  result.projector = rigOf(0).projector.device.resolution();
  return result;
}

nlohmann::json written(IJsonSerializable const& object) {
  nlohmann::json json;
  object.write(json);
  return json;
}

/// How far two transforms move the points of the rig's field apart, at most, mm.
double apart(cv::Matx44d const& a, cv::Matx44d const& b) {
  double worst = 0;
  for (double const x : {-150.0, 150.0}) {
    for (double const y : {-100.0, 100.0}) {
      for (double const z : {500.0, 620.0}) {
        worst = std::max(worst, cv::norm((a - b) * cv::Vec4d(x, y, z, 1)));
      }
    }
  }
  return worst;
}

TEST(CalibrateRig, ObjectsHoldOneRigAndItIsTheTrueOne) {
  RigCalibration const rig = calibrateRig(renderedViews(), settings());
  Sl3dScanner const& scanner = rig.scanner.object;
  Sl3dScanner const& second = rig.second.object;
  StereoCamera const& pair = rig.pair.object;
  // The same devices, to the bit.
  EXPECT_EQ(written(scanner.getCameraModel()), written(pair.getCameraModel0()));
  EXPECT_EQ(written(second.getCameraModel()), written(pair.getCameraModel1()));
  EXPECT_EQ(written(scanner.getProjectorModel()), written(second.getProjectorModel()));
  EXPECT_LT(cv::norm(pair.getTransform() * second.getTransform() - scanner.getTransform()), 1e-9);
  EXPECT_EQ(second.getPose(), pair.getTransform());
  EXPECT_TRUE(scanner.isCalibrated() && second.isCalibrated() && pair.isCalibrated());
  // The first camera's frame is the world's.
  cv::Matx44d const cam0_from_proj = rigOf(0).projector.world_from_proj.matrix();
  cv::Matx44d const cam0_from_cam1 = rigOf(1).camera.cam_from_world.matrix().inv();
  EXPECT_LT(apart(scanner.getTransform(), cam0_from_proj), 0.15);
  EXPECT_LT(apart(pair.getTransform(), cam0_from_cam1), 0.15);
  EXPECT_LT(rig.closure.turn, 0.001);
  EXPECT_LT(rig.closure.shift, 0.5);
  for (ScannerCalibration const* one : {&rig.scanner, &rig.second}) {
    EXPECT_LT(one->report.devices[0].rms, 0.05);
    EXPECT_LT(one->report.devices[1].rms, 0.1);
    EXPECT_FALSE(one->object.getCovariance().isEmpty());
  }
}

TEST(CalibrateRig, ViewsServeThePairsThatTheySuit) {
  std::vector<RigView> views = renderedViews();
  views[1].cameras[1].rows.clear(); // the second camera with the projector is without it
  views[2].cameras[0].target = cv::Mat(views[2].cameras[0].target.size(), CV_8U, cv::Scalar(70));
  RigCalibration const rig = calibrateRig(views, settings());
  EXPECT_TRUE(rig.scanner.views[1].isUsed() && rig.pair.views[1].isUsed());
  EXPECT_FALSE(rig.second.views[1].isUsed());
  EXPECT_TRUE(rig.second.views[2].isUsed());
  EXPECT_FALSE(rig.scanner.views[2].isUsed());
  EXPECT_NE(rig.pair.views[2].reason.find("first camera: no target"), std::string::npos)
      << rig.pair.views[2].reason;
}

TEST(CalibrateRig, RefusesWhatIsNoOneRig) {
  // The second camera's poses are others than the first one's.
  std::vector<RigView> views = renderedViews();
  for (std::size_t i = 0; i < views.size(); ++i) {
    views[i].cameras[1] = renderedViews()[(i + 1) % views.size()].cameras[1];
  }
  expectError([&] { calibrateRig(views, settings()); }, "cameras");
  views = renderedViews();
  views[0].cameras.pop_back();
  views[1].cameras.clear();
  views.resize(4);
  expectError([&] { calibrateRig(views, settings()); }, "a rig has two");
  CalibrationSettings separate = settings();
  separate.isAdjusted = false;
  expectError([&] { calibrateRig(views, separate); }, "isAdjusted");
}

} // namespace
} // namespace vorn::mv
