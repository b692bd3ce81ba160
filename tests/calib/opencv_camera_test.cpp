// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Files of cameras, as OpenCV itself writes them and as others do.
#include <vorn/mv/calib/opencv_camera.hpp>

#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core/persistence.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/core/library.hpp>

#include "calib/adjustment_rig.hpp"
#include "support/temporary_folder.hpp"

namespace vorn::mv {
namespace {

std::vector<double> const coefficients{-0.31,   0.12,    1e-3, -2e-4, -0.021, 0.011, 0.32,
                                       -0.0041, 1.25e-4, 2e-5, -3e-4, 4e-5,   0.012, -0.017};

class OpenCvCamera : public ::testing::Test {
protected:
  std::string path(std::string const& name) const { return (folder_.path() / name).string(); }

  std::string written(std::string const& text, std::string const& name = "camera.yml") const {
    std::ofstream(path(name), std::ios::binary) << text;
    return path(name);
  }

  void expectRefused(std::string const& text, std::string const& word) const {
    std::string const file = written(text);
    try {
      (void)readOpenCvCamera(file);
      ADD_FAILURE() << "not refused: " << text.substr(0, 200);
    } catch (Exception const& e) {
      EXPECT_NE(e.message().find(file), std::string::npos) << e.message();
      EXPECT_NE(e.message().find(word), std::string::npos) << e.message();
    }
  }

private:
  vorn::test::TemporaryFolder folder_;
};

// Every number of coefficients in every format, exactly as OpenCV wrote them.
TEST_F(OpenCvCamera, ReadsWhatOpenCvWrites) {
  cv::Matx33d const K(1402.25, 0, 515.125, 0, 1401.5, 381.0625, 0, 0, 1);
  for (std::string const ending : {".yml", ".xml", ".json"}) {
    for (std::size_t const count : {4U, 5U, 8U, 12U, 14U}) {
      cv::Mat const D =
          cv::Mat(std::vector<double>(coefficients.begin(),
                                      coefficients.begin() + static_cast<std::ptrdiff_t>(count)),
                  true);
      std::string const file = path("camera" + ending);
      {
        cv::FileStorage storage(file, cv::FileStorage::WRITE);
        storage << "calibration_time"
                << "today"
                << "image_width" << 1024 << "image_height" << 768;
        storage << "camera_matrix" << cv::Mat(K) << "distortion_coefficients"
                << (count % 2 == 0 ? D : cv::Mat(D.t())) << "avg_reprojection_error" << 0.125;
      }
      CameraModel const camera = readOpenCvCamera(file);
      EXPECT_EQ(cv::norm(camera.getK(), cv::Mat(K), cv::NORM_INF), 0) << file;
      ASSERT_EQ(camera.getD().total(), count) << file;
      EXPECT_EQ(cv::norm(camera.getD().reshape(1, 1), D.reshape(1, 1), cv::NORM_INF), 0) << file;
      EXPECT_EQ(camera.getResolution(), cv::Size(1024, 768));
      EXPECT_EQ(camera.getCalibError(), 0.125);
      // And means the same by them.
      cv::Point3f const point(-120, 85, 510);
      std::vector<cv::Point2f> expected;
      cv::projectPoints(std::vector<cv::Point3f>{point}, cv::Vec3d(), cv::Vec3d(), K, D, expected);
      EXPECT_LT(cv::norm(camera.calcImagePoints(std::vector<cv::Point3f>{point}, cv::Matx44d::eye())[0] -
                         expected[0]),
                1e-4);
    }
  }
}

TEST_F(OpenCvCamera, ReadsOtherNamesAndPlainLists) {
  struct Case {
    char const* text;
    cv::Size resolution;
    double error;
  };
  std::vector<Case> const cases{
      {"%YAML:1.0\n---\nK: [ 800, 0, 320, 0, 810, 240, 0, 0, 1 ]\nD: [ 0.1, 0.2, 0.3, 0.4 ]\n", {}, -1},
      {"%YAML:1.0\n---\ncameraMatrix: [ [ 800, 0, 320 ], [ 0, 810, 240 ], [ 0, 0, 1 ] ]\n"
       "distCoeffs: [ 0.1, 0.2, 0.3, 0.4 ]\nimageSize: [ 640, 480 ]\nrms: 0.3\n",
       {640, 480},
       0.3},
      {"%YAML:1.0\n---\nimage_width: 640\nimage_height: 480\ndistortion_model: plumb_bob\n"
       "camera_matrix:\n   rows: 3\n   cols: 3\n   data: [ 800, 0, 320, 0, 810, 240, 0, 0, 1 ]\n"
       "distortion_coefficients:\n   rows: 1\n   cols: 4\n   data: [ 0.1, 0.2, 0.3, 0.4 ]\n",
       {640, 480},
       -1},
      {"<?xml version=\"1.0\"?>\n<opencv_storage>\n<Camera_Matrix type_id=\"opencv-matrix\"><rows>3</rows>"
       "<cols>3</cols><dt>f</dt><data>800 0 320 0 810 240 0 0 1</data></Camera_Matrix>\n"
       "<note/><place at=\"bench/2\" />"
       "<Distortion_Coefficients type_id=\"opencv-matrix\"><rows>4</rows><cols>1</cols><dt>d</dt>"
       "<data>0.1 0.2 0.3 0.4</data></Distortion_Coefficients><image_Width>640</image_Width>"
       "<image_Height>480</image_Height></opencv_storage>\n",
       {640, 480},
       -1}};
  for (Case const& known : cases) {
    CameraModel const camera = readOpenCvCamera(written(known.text));
    EXPECT_EQ(cv::norm(camera.getK(), cv::Mat(cv::Matx33d(800, 0, 320, 0, 810, 240, 0, 0, 1)), cv::NORM_INF),
              0);
    EXPECT_EQ(cv::norm(camera.getD().reshape(1, 1), cv::Mat(cv::Matx14d(0.1, 0.2, 0.3, 0.4)), cv::NORM_INF),
              0);
    EXPECT_EQ(camera.getResolution(), known.resolution);
    EXPECT_EQ(camera.getCalibError(), known.error);
  }
}

TEST_F(OpenCvCamera, RefusesByFileAndMember) {
  std::string const head = "%YAML:1.0\n---\n";
  std::string const K = "K: [ 800, 0, 320, 0, 810, 240, 0, 0, 1 ]\n";
  std::string const D = "D: [ 0.1, 0.2, 0.3, 0.4 ]\n";
  expectRefused("", "no file of OpenCV");
  expectRefused("hello\n", "no file of OpenCV");
  expectRefused("%YAML:1.0\n---\nK: [ 800, 0\n", "no file of OpenCV");
  expectRefused(head + D, "has no camera_matrix");
  expectRefused(head + K, "has no distortion_coefficients");
  expectRefused(head + "K: 7\n" + D, "K is no matrix");
  expectRefused(head + "K: [ 800, 0, 320, 0, 810, 240, 0, 0 ]\n" + D, "K holds 8 numbers");
  expectRefused(head + "K: [ 800, 0, a, 0, 810, 240, 0, 0, 1 ]\n" + D, "K[2] is no number");
  expectRefused(head + "K: [ 800, 0, .Nan, 0, 810, 240, 0, 0, 1 ]\n" + D, "K[2] is not finite");
  expectRefused(head + "K: [ -800, 0, 320, 0, 810, 240, 0, 0, 1 ]\n" + D, "focal length");
  expectRefused(head + "K: [ 800, 0.5, 320, 0, 810, 240, 0, 0, 1 ]\n" + D, "skew");
  expectRefused(head + "K: [ 800, 0, 320, 0, 810, 240, 0, 0, 2 ]\n" + D, "no camera matrix");
  expectRefused(head + "K: { rows: 4, cols: 3, data: [ 1 ] }\n" + D, "K is 4 x 3");
  expectRefused(head + "K: { rows: 1000000000, cols: 1000000000, data: [ 1 ] }\n" + D, "K is");
  expectRefused(head + K + "D: [ 1, 2, 3 ]\n", "D holds 3 numbers");
  expectRefused(head + K + "D: [ 1, 2, 3, .Inf ]\n", "D[3] is not finite");
  expectRefused(head + K + "D: { rows: 2, cols: 2, data: [ 1, 2, 3, 4 ] }\n", "D is 2 x 2");
  expectRefused(head + K + D + "image_width: 640\n", "image_height");
  expectRefused(head + K + D + "image_width: 640\nimage_height: -480\n", "image_height");
  expectRefused(head + K + D + "image_size: [ 640 ]\n", "image_size");
  expectRefused(head + K + D + "rms: -1\n", "rms");
  expectRefused(head + K + D + "fisheye_model: 1\n", "fisheye_model");
  expectRefused(head + K + D + "distortion_model: equidistant\n", "equidistant");
  // What the parser would call itself for without end.
  expectRefused(head + "K: " + std::string(200000, '[') + "\n", "nested");
  std::string items;
  std::string elements = "<?xml version=\"1.0\"?>\n<opencv_storage>";
  for (int i = 0; i < 100000; ++i) {
    items += "- ";
    elements += "<a>";
  }
  expectRefused(head + "K:\n   " + items + "1\n", "nested");
  expectRefused("{\"D\": [1, 2, 3, 4], \"K\": " + std::string(200000, '[') + std::string(200000, ']') + "}",
                "K[0] is no number");
  expectRefused(elements, "nested");
  std::string const root = "<?xml version=\"1.0\"?>\n<opencv_storage>";
  expectRefused(root + "<K>1</D></opencv_storage>", "<K> ends with another name");
  expectRefused(root + "<K>1</K></opencv_storag>", "<opencv_storage> ends with another name");
  try {
    (void)readOpenCvCamera(path("none.yml"));
    ADD_FAILURE();
  } catch (Exception const& e) {
    EXPECT_NE(e.message().find("none.yml"), std::string::npos);
  }
}

// A lens of eight coefficients, held, where five do not describe it.
TEST_F(OpenCvCamera, IsHeldInAnAdjustment) {
  Library::init();
  vorn::test::AdjustmentRig rig;
  rig.camera.D = {0.9, 0.4, 6e-4, -4e-4, -0.6, 1.3, 0.9, -0.2};
  rig.cameraNoise = 0.005;
  rig.projectorNoise = 0.002;
  std::string const file = path("camera.xml");
  {
    cv::FileStorage storage(file, cv::FileStorage::WRITE);
    storage << "camera_matrix" << cv::Mat(rig.camera.K) << "distortion_coefficients"
            << cv::Mat(rig.camera.D, true);
  }
  CameraModel const camera = readOpenCvCamera(file);
  AdjustmentSettings settings;
  settings.shape = AdjustmentSettings::Shape::Flat;
  settings.holdCamera0 = true;
  auto const views = rig.views(6);
  Adjustment const adjustment = adjustScanner(views, camera, rig.sizeOf(rig.projector), settings);
  EXPECT_EQ(cv::norm(adjustment.models[0].getD(), camera.getD()), 0);
  EXPECT_EQ(adjustment.parameters.front(), "fx1");
  EXPECT_LT(adjustment.s0, 1.1);
  EXPECT_NEAR(adjustment.models[1].getK().at<double>(0, 0), rig.projector.K(0, 0), 0.2);
  EXPECT_LT(cv::norm(math::getT3(adjustment.transform) - math::getT3(rig.cam_from_proj)), 0.05);
  // Not held, it is the start: what five coefficients do not hold stays.
  settings.holdCamera0 = false;
  CameraModel start = camera;
  start.setResolution(rig.camera.resolution);
  Adjustment const free = adjustScanner(views, start, rig.sizeOf(rig.projector), settings);
  EXPECT_LT(free.s0, 1.1);
  EXPECT_EQ(free.models[0].getD().at<double>(6), rig.camera.D[6]);
  EXPECT_NE(free.models[0].getD().at<double>(0), rig.camera.D[0]);
}

} // namespace
} // namespace vorn::mv
