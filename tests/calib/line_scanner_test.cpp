// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/line_scanner.hpp>

#include <cmath>

#include <gtest/gtest.h>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/line_scanner_calib_data.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/geometry/plane3f.hpp>
#include <vorn/mv/geometry/rotation.hpp>

#include "calib/exact_views.hpp"

namespace vorn::mv {
namespace {

using nlohmann::json;
using test::ExactCamera;
using test::patternPoints;
using test::patternPoses;

json written(IJsonSerializable const& object) {
  json j;
  object.write(j);
  return j;
}

/// A camera and two lasers from the right, 20 degrees apart.
struct LineScannerTest : testing::Test {
  LineScannerTest() {
    Library::init();
    testing::internal::CaptureStdout();
    scanner["PlaneCount"] = 2;
    CameraModel camera;
    camera.setResolution(truth.resolution);
    scanner.setCameraModel(camera);
  }
  ~LineScannerTest() override { testing::internal::GetCapturedStdout(); }

  /// Where a laser's plane cuts the pattern, as pixels.
  std::vector<cv::Point2f> line(int laser, cv::Matx44d const& pose) const {
    cv::Vec3d const origin = math::getT3(pose);
    cv::Vec3d const inPattern = math::getR3(pose).t() * normals[laser];
    // The line a x + b y = c in the pattern's plane, from its point nearest the pattern's middle.
    cv::Vec2d const across(inPattern[0], inPattern[1]);
    cv::Vec2d const nearest = across * (normals[laser].dot(point - origin) / across.dot(across));
    cv::Vec2d const along = cv::Vec2d(-across[1], across[0]) / cv::norm(across);
    std::vector<cv::Point2f> onPattern;
    for (int i = -40; i <= 40; ++i) {
      onPattern.emplace_back(cv::Point2d(nearest + i * along));
    }
    return truth.image(onPattern, pose);
  }

  void addViews(int count) { addViews(patternPoses(count)); }

  void addViews(std::vector<cv::Matx44d> const& poses) {
    for (cv::Matx44d const& pose : poses) {
      data.add(truth.image(patternPoints(), pose), patternPoints(), {line(0, pose), line(1, pose)});
    }
  }

  std::string failure() {
    json const before = written(scanner);
    try {
      scanner.calib(data);
    } catch (Exception const& e) {
      EXPECT_EQ(written(scanner), before);
      EXPECT_TRUE(data.getPoses().empty() && data.getPlanePntss().empty());
      return e.message();
    }
    return "no exception";
  }

  ExactCamera truth;
  cv::Vec3d point{0, 0, 500};
  cv::Vec3d normals[2] = {{std::cos(0.4), 0, std::sin(0.4)}, {std::cos(0.75), 0, std::sin(0.75)}};
  LineScanner scanner;
  LineScannerCalibData data;
};

TEST_F(LineScannerTest, FindsTheLaserPlanes) {
  addViews(6);
  scanner.calib(data);
  EXPECT_TRUE(scanner.isCalibrated());
  ASSERT_EQ(scanner.getPlanes().size(), 2U);
  for (int laser = 0; laser < 2; ++laser) {
    Plane3f const& plane = scanner.getPlanes()[static_cast<std::size_t>(laser)];
    cv::Vec3d const across = cv::Vec3d(plane.normal()).cross(normals[laser]);
    EXPECT_LT(cv::norm(across), 1e-4) << "radians; rounding of pixels moves the camera by microns";
    EXPECT_LT(plane.distance(cv::Point3d(point)), 0.02) << "millimetres";
    EXPECT_EQ(data.getPlanePnts(laser).size(), 6U * 81U);
  }
  // Points of the second plane, through a region of interest.
  cv::Vec3d const onPlane = point + 30 * cv::Vec3d(-normals[1][2], 0, normals[1][0]) + cv::Vec3d(0, -20, 0);
  cv::Point2f const pixel = truth.image({{0, 0}}, math::createTransform(cv::Matx33d::eye(), onPlane))[0];
  auto const found = scanner.triangulate({pixel - cv::Point2f(64, 32)}, 1, {64, 32});
  EXPECT_LT(cv::norm(cv::Vec3d(cv::Point3d(found[0])) - onPlane), 0.03);
  EXPECT_EQ(scanner.triangulate({{}, {pixel - cv::Point2f(64, 32)}}, {64, 32})[1], found);
  EXPECT_THROW(scanner.triangulate({pixel}, 2, {}), Exception);
  EXPECT_THROW(scanner.triangulate({pixel}, -1, {}), Exception);
  EXPECT_THROW(scanner.triangulate({{}, {}, {}}, {}), Exception);
}

TEST_F(LineScannerTest, ASecondCalibrationForgetsThePosesOfTheFirst) {
  addViews(3);
  scanner.calib(data);
  data.clear(); // which keeps the poses
  point[2] = 560;
  normals[0] = {std::cos(0.6), 0, std::sin(0.6)};
  std::vector<cv::Matx44d> poses = patternPoses(8);
  addViews({poses.begin() + 3, poses.end()});
  scanner.calib(data);
  EXPECT_EQ(data.getPoses().size(), 8U);
  for (int laser = 0; laser < 2; ++laser) {
    Plane3f const& plane = scanner.getPlanes()[static_cast<std::size_t>(laser)];
    EXPECT_LT(cv::norm(cv::Vec3d(plane.normal()).cross(normals[laser])), 1e-4) << "radians";
    EXPECT_LT(plane.distance(cv::Point3d(point)), 0.02) << "millimetres";
  }
}

TEST_F(LineScannerTest, AFailedCalibrationChangesNothing) {
  addViews(2);
  EXPECT_EQ(failure(), "Insufficient calibration data!");
  data.clear();
  addViews(4);
  scanner["PlaneCount"] = 3;
  EXPECT_EQ(failure(), "Invalid calibration input data!");
  scanner["PlaneCount"] = 2;
  data.CameraCalibData::add(data.getImgPnts(0), data.getObjPnts(0));
  EXPECT_EQ(failure(), "Invalid calibration input data!") << "a view without lines";
  data.removeLast();
  for (int i = 0; i < 3; ++i) {
    data.add(data.getImgPnts(0), data.getObjPnts(0), {data.getLinePntss(0)[0], {}});
    data.removeAt(0);
  }
  EXPECT_EQ(failure(), "Not enough line data") << "one line determines no plane";
  data.add(data.getImgPnts(0), data.getObjPnts(0), {data.getLinePntss(0)[0], {}});
  data.removeAt(0);
  EXPECT_EQ(failure(), "Not enough point to estimate 3d plane!");
}

TEST_F(LineScannerTest, ALineAtOnePlaceDeterminesNoPlane) {
  std::vector<cv::Matx44d> poses = patternPoses(5);
  poses.push_back(poses[0]);
  for (std::size_t i = 0; i < poses.size(); ++i) {
    bool const isSeen = i == 0 || i == 5;
    data.add(truth.image(patternPoints(), poses[i]), patternPoints(),
             {line(0, poses[i]), isSeen ? line(1, poses[i]) : std::vector<cv::Point2f>()});
  }
  EXPECT_EQ(failure(), "Laser line 1 lies at one place in all views, which determines no plane");
}

TEST_F(LineScannerTest, ReadsWhatItWrote) {
  addViews(4);
  scanner.calib(data);
  json const document = json::parse(written(scanner).dump());
  EXPECT_TRUE(document.contains("CameraModel") && document.contains("Plane_0") &&
              document.contains("Plane_1"));
  LineScanner back;
  EXPECT_EQ(back["PlaneCount"].getValue(), Variant(1));
  back.read(document);
  EXPECT_EQ(written(back), document);
  EXPECT_EQ(back["PlaneCount"].getValue(), Variant(2));
  EXPECT_TRUE(back.isCalibrated());
  back["PlaneCount"] = 3;
  EXPECT_FALSE(back.isCalibrated());

  json broken = document;
  broken["Plane_1"].erase("n");
  broken["Plane_0"]["p"] = {1, 2, 3};
  EXPECT_ANY_THROW(back.read(broken));
  EXPECT_EQ(written(back), document);
  broken = document;
  for (int i = 0; i < 65; ++i) {
    broken["Plane_" + std::to_string(i)] = document["Plane_0"];
  }
  EXPECT_THROW(back.read(broken), Exception) << "more planes than PlaneCount allows";
  EXPECT_EQ(written(back), document);
  EXPECT_THROW(back["PlaneCount"] = 0, Exception);
}

TEST_F(LineScannerTest, TakesPlanesAsTheyAreAndRefusesOthers) {
  Plane3f const first({1, 2, 500}, {0, 3, 4});
  Plane3f const second({-4, 0, 450}, {1, 0, 0});
  scanner.setPlanes({first, second});
  EXPECT_EQ(scanner["PlaneCount"], 2);
  ASSERT_EQ(scanner.getPlanes().size(), 2U);
  EXPECT_EQ(scanner.getPlanes()[1].point(), second.point());
  EXPECT_THROW(scanner.setPlanes({}), Exception);
  EXPECT_THROW(scanner.setPlanes({first, Plane3f()}), Exception);
  EXPECT_THROW(scanner.setPlanes({Plane3f({std::nanf(""), 0, 1}, {0, 1, 0})}), Exception);
  EXPECT_THROW(scanner.setPlanes(std::vector<Plane3f>(65, first)), Exception);
  EXPECT_EQ(scanner["PlaneCount"], 2);
  EXPECT_EQ(scanner.getPlanes().size(), 2U);
}

TEST_F(LineScannerTest, CalibDataKeepTheirListsAligned) {
  addViews(3);
  data.removeAt(0);
  EXPECT_EQ(data.count(), 2);
  EXPECT_EQ(data.getLinePntss(0)[1], line(1, patternPoses(3)[1]));
  LineScannerCalibData back;
  back.read(json::parse(written(data).dump()));
  EXPECT_EQ(back.getLinePntsss(), data.getLinePntsss());
  EXPECT_EQ(back.getImgPntss(), data.getImgPntss());
  json broken = written(data);
  broken["LinePntsss"].erase(0);
  EXPECT_THROW(back.read(broken), Exception);
  EXPECT_EQ(back.getLinePntsss(), data.getLinePntsss());
  data.removeLast();
  EXPECT_EQ(data.getLinePntsss().size(), 1U);
  data.clear();
  EXPECT_TRUE(data.getLinePntsss().empty());
  EXPECT_EQ(back.count(), 2) << "copies are values";
  data.CameraCalibData::add({}, {});
  data.add({}, {}, {{{1, 2}}});
  ASSERT_EQ(data.getLinePntsss().size(), 2U) << "a view without lines takes a place all the same";
  EXPECT_EQ(data.getLinePntss(1).size(), 1U);
}

} // namespace
} // namespace vorn::mv
