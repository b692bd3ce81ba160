// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/camera_model.hpp>

#include <cmath>

#include <gtest/gtest.h>

#include <vorn/core/exception.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/geometry/plane3f.hpp>

#include "calib/exact_views.hpp"

namespace vorn::mv {
namespace {

using nlohmann::json;
using test::addViews;
using test::ExactCamera;
using test::patternPoints;
using test::patternPoses;

/// Image points are floats: up to 1e-4 pixels off at coordinates of thousands.
constexpr double imageRounding = 2e-4;

json written(IJsonSerializable const& object) {
  json j;
  object.write(j);
  return j;
}

TEST(CameraModel, FindsTheCameraThatTookTheViews) {
  Library::init();
  ExactCamera const camera;
  CameraCalibData data;
  addViews(data, camera, patternPoses(8));
  CameraModel model;
  model.setResolution(camera.resolution);
  double const error = model.calib(data, 100);
  EXPECT_LT(error, imageRounding);
  EXPECT_EQ(model.getCalibError(), error);
  EXPECT_TRUE(model.isCalibrated());
  EXPECT_EQ(model.getK().type(), CV_64F);
  EXPECT_EQ(model.getD().total(), 5U);
  // What rounding of the image points leaves; the pattern covers the middle of the image only.
  EXPECT_LT(cv::norm(cv::Mat(camera.K), model.getK(), cv::NORM_INF), 0.05);
  ASSERT_EQ(data.getPoses().size(), 8U);
  for (int i = 0; i < 8; ++i) {
    EXPECT_LT(cv::norm(data.getPose(i) - patternPoses(8)[static_cast<std::size_t>(i)], cv::NORM_INF), 0.02);
  }
  model.calib(data, 5);
  EXPECT_EQ(data.getPoses().size(), 16U) << "calibration appends";
  data.clear();
  EXPECT_EQ(data.count(), 0);
  EXPECT_EQ(data.getPoses().size(), 16U);
}

TEST(CameraModel, ChangedElementsOfKAreOneModelsOnly) {
  ExactCamera const camera;
  CameraModel const model = camera.model();
  CameraModel const copy = model;
  CameraModel assigned;
  assigned = model;
  cv::Mat(model.getK()).at<double>(0, 0) = 1.0;
  cv::Mat(model.getD()).at<double>(0) = 1.0;
  EXPECT_EQ(model.getK().at<double>(0, 0), 1.0);
  for (CameraModel const& other : {copy, assigned}) {
    EXPECT_EQ(other.getK().at<double>(0, 0), camera.K(0, 0));
    EXPECT_NE(other.getD().at<double>(0), 1.0);
  }
}

TEST(CameraModel, CalibratingACopyLeavesTheOriginal) {
  Library::init();
  CameraModel const original = ExactCamera().model();
  json const before = written(original);
  ExactCamera const other{{1024, 768}, {1300, 0, 520, 0, 1305, 380, 0, 0, 1}, {-0.2, 0.1, 0, 0, 0}};
  CameraCalibData data;
  addViews(data, other, patternPoses(4));
  CameraModel copy = original;
  copy.setResolution(other.resolution);
  copy.calib(data, 100);
  EXPECT_NEAR(copy.getK().at<double>(0, 0), 1300, 1);
  EXPECT_EQ(written(original), before);
}

TEST(CameraModel, AFailedCalibrationChangesNothing) {
  Library::init();
  ExactCamera const camera;
  CameraModel model = camera.model();
  json const before = written(model);
  CameraCalibData data;
  addViews(data, camera, patternPoses(2));
  try {
    model.calib(data, 100);
    FAIL() << "two views are too few";
  } catch (Exception const& e) {
    EXPECT_EQ(e.message(), "Not enough calibration sample.");
    EXPECT_EQ(e.file(), "calib");
  }
  data.add(patternPoints(), {{0, 0}, {1, 0}});
  EXPECT_THROW(model.calib(data, 100), cv::Exception);
  EXPECT_EQ(written(model), before);
  EXPECT_TRUE(data.getPoses().empty());
  data.removeLast();
  addViews(data, camera, {patternPoses(3)[2]});
  EXPECT_NO_THROW(model.calib(data, 10)) << "three views are enough";
  CameraModel sizeless;
  EXPECT_THROW(sizeless.calib(data, 100), Exception);
}

TEST(CameraModel, EstimatesThePoseOfOneView) {
  ExactCamera const camera;
  for (cv::Matx44d const& pose : patternPoses(6)) {
    cv::Matx44d const found = camera.model().estimate(camera.image(patternPoints(), pose), patternPoints());
    EXPECT_LT(cv::norm(found - pose, cv::NORM_INF), 1e-3);
  }
  EXPECT_THROW(camera.model().estimate({{1, 2}}, {{0, 0}}), cv::Exception);
}

TEST(CameraModel, ProjectsThePatternAndBack) {
  ExactCamera const camera;
  CameraModel const model = camera.model();
  for (cv::Matx44d const& pose : patternPoses(6)) {
    auto const pixels = model.calcImagePoints(patternPoints(), pose);
    EXPECT_LT(cv::norm(pixels, camera.image(patternPoints(), pose), cv::NORM_INF), imageRounding);
    auto const back = model.calcObjectPoints(pixels, pose);
    ASSERT_EQ(back.size(), pixels.size());
    for (std::size_t i = 0; i < back.size(); ++i) {
      cv::Point2f const p = patternPoints()[i];
      // Rounding of a pixel coordinate, in millimetres at half a metre.
      EXPECT_LT(cv::norm(back[i] - cv::Point3f(p.x, p.y, 0)), 1e-4);
    }
  }
}

TEST(CameraModel, TriangulatesOnAPlane) {
  ExactCamera const camera;
  cv::Vec3d const normal = cv::Vec3d(0.3, -0.2, -1) / cv::norm(cv::Vec3d(0.3, -0.2, -1));
  Plane3f const plane({10, 20, 500}, normal);
  std::vector<cv::Point3d> truth;
  for (cv::Vec2d const& ray : {cv::Vec2d(0, 0), cv::Vec2d(0.3, -0.2), cv::Vec2d(-0.4, 0.35)}) {
    cv::Vec3d const direction(ray[0], ray[1], 1);
    truth.emplace_back(direction * (normal.dot({10, 20, 500}) / normal.dot(direction)));
  }
  std::vector<cv::Point2d> pixels;
  cv::projectPoints(truth, cv::Vec3d(), cv::Vec3d(), camera.K, camera.D, pixels);
  std::vector<cv::Point2f> inRegion;
  for (cv::Point2d const& p : pixels) {
    inRegion.emplace_back(p - cv::Point2d(100, 50));
  }
  auto const points = camera.model().triangulate(inRegion, plane, {100, 50});
  ASSERT_EQ(points.size(), truth.size());
  for (std::size_t i = 0; i < truth.size(); ++i) {
    EXPECT_LT(cv::norm(cv::Point3d(points[i]) - truth[i]), 2e-4) << "rounding of pixels, in millimetres";
  }
  auto const atTheCentre =
      camera.model().triangulate({{300, 400}, {5, 6}}, Plane3f({0, 0, 0}, {1, 2, 3}), {0, 0});
  EXPECT_EQ(atTheCentre, std::vector<cv::Point3f>(2));
}

TEST(CameraModel, TakesEmptyListsAndSaysWhenItHasNoCamera) {
  CameraModel const model = ExactCamera().model();
  auto const pose = cv::Matx44d::eye();
  Plane3f const plane({0, 0, 1}, {0, 0, 1});
  EXPECT_TRUE(model.calcImagePoints(std::vector<cv::Point2f>(), pose).empty());
  EXPECT_TRUE(model.calcImagePoints(std::vector<cv::Point3f>(), pose).empty());
  EXPECT_TRUE(model.calcObjectPoints({}, pose).empty());
  EXPECT_TRUE(model.triangulate({}, plane, {}).empty());
  EXPECT_TRUE(model.undistortPoints({}).empty());
  CameraModel const fresh;
  EXPECT_EQ(fresh.getCalibError(), -1);
  EXPECT_EQ(fresh.getResolution(), cv::Size());
  EXPECT_FALSE(fresh.isCalibrated());
  EXPECT_THROW(fresh.undistortPoints({{1, 2}}), Exception);
  EXPECT_THROW(fresh.calcImagePoints(patternPoints(), pose), Exception);
  EXPECT_THROW(fresh.estimate(patternPoints(), patternPoints()), Exception);
}

TEST(CameraModel, DrawsTheAxesOfAPose) {
  ExactCamera const camera;
  cv::Mat image = cv::Mat::zeros(camera.resolution, CV_8UC3);
  cv::Matx44d const pose = math::createTransform(cv::Matx33d(1, 0, 0, 0, 1, 0, 0, 0, 1), {10, -20, 500});
  camera.model().drawPose(image, pose, 30, 3);
  auto const colorAt = [&](float x, float y) {
    return image.at<cv::Vec3b>(cv::Point(camera.image({{x, y}}, pose)[0]));
  };
  EXPECT_EQ(colorAt(15, 0), cv::Vec3b(255, 0, 0));
  EXPECT_EQ(colorAt(0, 15), cv::Vec3b(0, 255, 0));
  EXPECT_EQ(colorAt(0, 0), cv::Vec3b(0, 0, 255)) << "z is drawn last, over the others";
  EXPECT_EQ(colorAt(15, 15), cv::Vec3b());
}

TEST(CameraModel, IsCalibratedBetweenZeroAndHalfAPixel) {
  ExactCamera const camera;
  EXPECT_TRUE(camera.model(0.3).isCalibrated());
  EXPECT_FALSE(camera.model(0.5).isCalibrated());
  EXPECT_FALSE(camera.model(0).isCalibrated());
}

TEST(CameraModel, ReadsWhatItWrote) {
  CameraModel const model = ExactCamera().model(0.25);
  CameraModel back;
  back.read(json::parse(written(model).dump()));
  EXPECT_EQ(written(back), written(model));
  EXPECT_EQ(back.getResolution(), cv::Size(2448, 2048));
  EXPECT_EQ(cv::norm(back.getK(), model.getK()), 0);

  json floats = written(model);
  cv::Mat K;
  model.getK().convertTo(K, CV_32F);
  floats["K"] = K;
  back.read(floats);
  EXPECT_EQ(back.getK().type(), CV_64F);

  json const fresh = written(CameraModel());
  EXPECT_FALSE(fresh.contains("K") || fresh.contains("D"));
  back.read(fresh);
  EXPECT_TRUE(back.getK().empty() && back.getD().empty());
}

TEST(CameraModel, ABrokenDocumentChangesNothing) {
  CameraModel model = ExactCamera().model();
  json const before = written(model);
  for (char const* change : {R"({"Resolution": null})", R"({"Resolution": [1, 2, 3]})",
                             R"({"Resolution": [-1, 2]})", R"({"K": null})", R"({"K": {"rows": 2}})",
                             R"({"K": {"data": [1, 2]}})", R"({"K": {"data": [0, 0, 0, 0, 0, 0, 0, 0, 0]}})",
                             R"({"D": {"rows": 7, "data": [1, 2, 3, 4, 5, 6, 7]}})", R"({"Error": "small"})",
                             R"({"Error": null})"}) {
    json broken = before;
    broken.merge_patch(json::parse(change));
    EXPECT_ANY_THROW(model.read(broken)) << change;
    EXPECT_EQ(written(model), before) << change;
  }
}

TEST(CameraModel, CopiesAreValues) {
  CameraModel model = ExactCamera().model();
  CameraModel copy = model;
  copy.setResolution({640, 480});
  EXPECT_EQ(model.getResolution(), cv::Size(2448, 2048));
  EXPECT_EQ(copy.getResolution(), cv::Size(640, 480));
  EXPECT_EQ(model.getClassName(), "vorn::mv::CameraModel");
  EXPECT_EQ(model.getInterfaces(), (std::vector<std::string>{"vorn::IObject", "vorn::IJsonSerializable"}));
}

TEST(CameraCalibData, KeepsItsListsAligned) {
  CameraCalibData data;
  for (int i = 0; i < 4; ++i) {
    auto const f = static_cast<float>(i);
    data.add({{f, 0}}, {{0, f}});
  }
  data.addPose(cv::Matx44d::eye());
  data.removeAt(1);
  data.removeLast();
  EXPECT_EQ(data.count(), 2);
  EXPECT_EQ(data.getImgPnts(1), (std::vector<cv::Point2f>{{2, 0}}));
  EXPECT_EQ(data.getObjPnts(1), (std::vector<cv::Point2f>{{0, 2}}));
  EXPECT_EQ(data.getPoses().size(), 1U);
  CameraCalibData back;
  back.read(json::parse(written(data).dump()));
  EXPECT_EQ(back.getImgPntss(), data.getImgPntss());
  EXPECT_EQ(back.getObjPntss(), data.getObjPntss());
  EXPECT_EQ(back.getPoses(), data.getPoses());

  json broken = written(data);
  broken["ObjPntss"].erase(0);
  EXPECT_THROW(back.read(broken), Exception);
  EXPECT_EQ(back.count(), 2);
  data.clear();
  data.removeLast();
  EXPECT_EQ(data.count(), 0);
  EXPECT_EQ(back.count(), 2);
}

} // namespace
} // namespace vorn::mv
