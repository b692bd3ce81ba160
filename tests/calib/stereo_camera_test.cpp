// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/stereo_camera.hpp>

#include <gtest/gtest.h>

#include <vorn/core/exception.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/geometry/rotation.hpp>

#include "calib/exact_views.hpp"

namespace vorn::mv {
namespace {

using nlohmann::json;
using test::addViews;
using test::ExactCamera;
using test::patternPoses;

/// A stereo pair whose second camera stands to the right and turns in.
struct StereoCameraTest : testing::Test {
  StereoCameraTest() {
    Library::init();
    testing::internal::CaptureStdout();
    stereo.setResolution(camera0.resolution, camera1.resolution);
  }
  ~StereoCameraTest() override { testing::internal::GetCapturedStdout(); }

  void addViewsOf(int count0, int count1) {
    addViews(data0, camera0, patternPoses(count0));
    addViews(data1, camera1, patternPoses(count1), cam0_from_cam1.inv());
  }

  json written() const {
    json j;
    stereo.write(j);
    return j;
  }

  ExactCamera camera0{{612, 512}, {600, 0, 302, 0, 602, 257, 0, 0, 1}, {-0.12, 0.09, 0.0005, -0.0007, 0}};
  ExactCamera camera1{{320, 240}, {350, 0, 158, 0, 352, 121, 0, 0, 1}, {0.05, -0.02, 0, 0, 0}};
  cv::Matx44d cam0_from_cam1 = math::createTransform(math::rotY(-0.3), {120, 5, 20});
  StereoCamera stereo;
  CameraCalibData data0;
  CameraCalibData data1;
};

TEST_F(StereoCameraTest, FindsTheTransformFromCamera1ToCamera0) {
  addViewsOf(6, 6);
  stereo.calib(data0, data1);
  EXPECT_TRUE(stereo.isCalibrated());
  // What rounding of the image points leaves, in millimetres and radians.
  EXPECT_LT(cv::norm(stereo.getTransform() - cam0_from_cam1, cv::NORM_INF), 0.02);
  EXPECT_EQ(stereo.getUndistortedMap0().size(), camera0.resolution);
  EXPECT_EQ(stereo.getUndistortedMap1().size(), camera1.resolution);
  cv::Vec2f const ray = stereo.getUndistortedMap1()(50, 70);
  auto const expected = stereo.getCameraModel1().undistortPoints({{70, 50}})[0];
  EXPECT_EQ(ray, cv::Vec2f(expected.x, expected.y));
}

TEST_F(StereoCameraTest, AveragesAllPosesElementByElement) {
  addViewsOf(3, 3);
  data0.addPose(math::createTransform(math::rotX(0.5), {1, 2, 3})); // of some earlier calibration
  data1.addPose(cv::Matx44d::eye());
  stereo.calib(data0, data1);
  ASSERT_EQ(data0.getPoses().size(), 4U);
  cv::Matx44d mean;
  for (int i = 0; i < 4; ++i) {
    mean += data0.getPose(i) * data1.getPose(i).inv() * 0.25;
  }
  EXPECT_LT(cv::norm(stereo.getTransform() - mean, cv::NORM_INF), 1e-11);
  EXPECT_GT(cv::norm(math::getR3(mean) * math::getR3(mean).t() - cv::Matx33d::eye()), 0.01) << "no rotation";
}

TEST_F(StereoCameraTest, EqualDataGiveTheIdentity) {
  addViews(data0, camera0, patternPoses(4));
  data1 = data0;
  stereo.setResolution(camera0.resolution, camera0.resolution);
  stereo.calib(data0, data1);
  EXPECT_LT(cv::norm(stereo.getTransform() - cv::Matx44d::eye(), cv::NORM_INF), 1e-12);
}

TEST_F(StereoCameraTest, KeepsTheTransformButNoMapsOfAPoorCalibration) {
  addViewsOf(4, 4);
  CameraCalibData noisy;
  for (int i = 0; i < 4; ++i) {
    auto imgPnts = data0.getImgPnts(i);
    for (cv::Point2f& p : imgPnts) {
      p.x += static_cast<float>(cv::theRNG().gaussian(1.5));
    }
    noisy.add(imgPnts, data0.getObjPnts(i));
  }
  CameraCalibData good = data0;
  CameraCalibData good1 = data1;
  stereo.calib(good, good1);
  ASSERT_FALSE(stereo.getUndistortedMap0().empty() || stereo.getUndistortedMap1().empty());
  stereo.calib(noisy, data1);
  EXPECT_GE(stereo.getCameraModel0().getCalibError(), 0.5);
  EXPECT_FALSE(stereo.isCalibrated());
  EXPECT_NE(stereo.getTransform(), cv::Matx44d::eye());
  EXPECT_TRUE(stereo.getUndistortedMap0().empty()) << "nor those of the good calibration before";
  EXPECT_TRUE(stereo.getUndistortedMap1().empty());
}

TEST_F(StereoCameraTest, AFailedCalibrationChangesNothing) {
  auto const failure = [this] {
    json const before = written();
    try {
      stereo.calib(data0, data1);
    } catch (Exception const& e) {
      EXPECT_EQ(written(), before);
      EXPECT_TRUE(data0.getPoses().empty() && data1.getPoses().empty());
      return e.message();
    }
    return std::string("no exception");
  };
  addViewsOf(2, 2);
  EXPECT_EQ(failure(), "Insufficient calibration data");
  addViewsOf(2, 0);
  EXPECT_EQ(failure(), "Not enough calibration sample.") << "of camera 1";
  addViewsOf(0, 1);
  EXPECT_EQ(failure(), "The data sets do not match: 4 views with 0 poses and 3 views with 0 poses");
}

TEST_F(StereoCameraTest, ReadsWhatItWrote) {
  json models;
  camera0.model().write(models["CameraModel0"]);
  camera1.model().write(models["CameraModel1"]);
  models["Hpc"] = cam0_from_cam1;
  models["Hpose"] = math::createTransform(math::rotZ(1), {7, 8, 9});
  stereo.read(models);
  EXPECT_EQ(written(), models);
  EXPECT_EQ(stereo.getTransform(), cam0_from_cam1);
  EXPECT_EQ(math::getT3(stereo.getPose()), cv::Vec3d(7, 8, 9));
  stereo.calcUndistortedMaps();
  EXPECT_FALSE(stereo.getUndistortedMap1().empty());
  stereo.read(models);
  EXPECT_TRUE(stereo.getUndistortedMap1().empty()) << "maps belong to the cameras they were made for";
  stereo.calcUndistortedMaps();
  stereo.setResolution({64, 48}, {32, 24});
  EXPECT_TRUE(stereo.getUndistortedMap0().empty()) << "and to their resolution";
  stereo.read(models);
  for (char const* key : {"CameraModel0", "CameraModel1", "Hpc", "Hpose"}) {
    json broken = models;
    broken["Hpc"] = cv::Matx44d::eye();
    broken[key] = 5;
    EXPECT_ANY_THROW(stereo.read(broken));
    EXPECT_EQ(written(), models) << key;
  }
  EXPECT_THROW(StereoCamera().calcUndistortedMaps(), Exception);
}

} // namespace
} // namespace vorn::mv
