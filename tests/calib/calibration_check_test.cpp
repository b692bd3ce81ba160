// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/calibration_check.hpp>

#include <cmath>

#include <gtest/gtest.h>

#include <vorn/mv/calib/line_scanner_calib_data.hpp>
#include <vorn/mv/geometry/rotation.hpp>

#include "calib/exact_views.hpp"
#include "support/seed.hpp"

namespace vorn::mv {
namespace {

using test::addViews;
using test::ExactCamera;
using test::patternPoints;
using test::patternPoses;

ExactCamera const camera;

std::string problemOf(CameraCalibData const& data) {
  return findCalibrationProblem(data, camera.resolution).value_or("none");
}

/// Views of a pattern at many places, all tilted alike and turned in its own plane.
CameraCalibData viewsFromOneDirection(cv::Matx33d const& tilt) {
  std::vector<cv::Matx44d> poses;
  for (int i = 0; i < 6; ++i) {
    cv::Vec3d const place(40 * std::cos(i), 30 * std::sin(i), 450 + 40 * i);
    poses.push_back(math::createTransform(tilt * math::rotZ(0.8 * i), place));
  }
  CameraCalibData data;
  addViews(data, camera, poses);
  return data;
}

TEST(CalibrationCheck, PassesGoodViews) {
  CameraCalibData data;
  addViews(data, camera, patternPoses(3));
  EXPECT_EQ(problemOf(data), "none");
}

TEST(CalibrationCheck, SeesThatTheFocalLengthIsNotDetermined) {
  char const* const alike = "all views show the pattern from the same direction";
  EXPECT_EQ(problemOf(viewsFromOneDirection(cv::Matx33d::eye())).find(alike), 0U) << "frontal";
  EXPECT_EQ(problemOf(viewsFromOneDirection(math::rotX(0.5))).find(alike), 0U) << "all tilted alike";
  CameraCalibData copies;
  addViews(copies, camera, std::vector<cv::Matx44d>(5, patternPoses(1)[0]));
  EXPECT_EQ(problemOf(copies).find(alike), 0U) << "the same view over and over";
  CameraCalibData data = viewsFromOneDirection(cv::Matx33d::eye());
  addViews(data, camera, {math::createTransform(math::rotY(0.3), {0, 0, 500})});
  EXPECT_EQ(problemOf(data), "none") << "one other direction is enough";
}

/// The same views, each image point off by noise of `sigma` pixels in either coordinate.
CameraCalibData withNoise(CameraCalibData const& exact, double sigma) {
  cv::RNG random(test::seed());
  CameraCalibData data;
  for (int i = 0; i < exact.count(); ++i) {
    auto imgPnts = exact.getImgPnts(i);
    for (cv::Point2f& p : imgPnts) {
      p += cv::Point2f(cv::Point2d(random.gaussian(sigma), random.gaussian(sigma)));
    }
    data.add(imgPnts, exact.getObjPnts(i));
  }
  return data;
}

TEST(CalibrationCheck, TellsDirectionsApartInNoise) {
  constexpr double poorCentres = 0.3; // px, ten times what the detector leaves in poor light
  auto const frontalViews = [](double distance) {
    std::vector<cv::Matx44d> poses;
    for (int i = 0; i < 6; ++i) {
      poses.push_back(math::createTransform(math::rotZ(0.8 * i), {0, 0, distance * (1 + 0.1 * i)}));
    }
    CameraCalibData data;
    addViews(data, camera, poses);
    return data;
  };
  // From 150 mm across in 450 mm to a tenth of the image's width.
  for (double const distance : {450.0, 1500.0}) {
    SCOPED_TRACE(distance);
    CameraCalibData data = frontalViews(distance);
    EXPECT_EQ(problemOf(withNoise(data, poorCentres)).find("all views show the pattern"), 0U);
    addViews(data, camera, {math::createTransform(math::rotX(CV_PI / 12), {0, 0, distance})});
    EXPECT_EQ(problemOf(withNoise(data, poorCentres)), "none") << "one view is tilted by 15 degrees";
  }
}

TEST(CalibrationCheck, NamesTheViewThatIsBad) {
  auto const imgPnts = camera.image(patternPoints(), patternPoses(1)[0]);
  auto const withThirdView = [](std::vector<cv::Point2f> const& img, std::vector<cv::Point2f> const& obj) {
    CameraCalibData data;
    addViews(data, camera, patternPoses(2));
    data.add(img, obj);
    addViews(data, camera, patternPoses(1));
    return problemOf(data);
  };
  auto const few = [](std::vector<cv::Point2f> const& points, std::size_t count) {
    return std::vector<cv::Point2f>(points.begin(), points.begin() + static_cast<std::ptrdiff_t>(count));
  };
  EXPECT_EQ(withThirdView(imgPnts, few(patternPoints(), 20)),
            "view 2 has 99 image points and 20 pattern points");
  EXPECT_EQ(withThirdView(few(imgPnts, 5), few(patternPoints(), 5)),
            "view 2 has only 5 points, at least 6 are needed");
  EXPECT_EQ(withThirdView(few(imgPnts, 11), few(patternPoints(), 11)),
            "view 2 has points that all lie on one line");
  auto broken = imgPnts;
  broken[7].y = NAN;
  EXPECT_EQ(withThirdView(broken, patternPoints()), "view 2 has points that are not finite");
  broken[7].y = 2050;
  EXPECT_EQ(withThirdView(broken, patternPoints()),
            "view 2 has points outside the image of 2448 x 2048 pixels");
  EXPECT_EQ(withThirdView(std::vector<cv::Point2f>(99, {5, 5}), patternPoints()),
            "view 2 has points that all lie on one line");
  CameraCalibData data;
  addViews(data, camera, patternPoses(2));
  EXPECT_EQ(problemOf(data), "2 views are too few, at least 3 are needed");
  EXPECT_EQ(findCalibrationProblem(data, {}), "the resolution of the camera is not known");
}

TEST(CalibrationCheck, NamesTheLaserLineThatIsMissing) {
  std::vector<cv::Point2f> const line{{1, 2}, {3, 4}};
  auto const problem = [&](std::vector<std::vector<std::vector<cv::Point2f>>> const& lines) {
    LineScannerCalibData data;
    for (int i = 0; i < 3; ++i) {
      data.add(camera.image(patternPoints(), patternPoses(3)[static_cast<std::size_t>(i)]), patternPoints(),
               lines[static_cast<std::size_t>(i)]);
    }
    return findCalibrationProblem(data, camera.resolution, 2).value_or("none");
  };
  EXPECT_EQ(problem({{line, line}, {line, line}, {line, {}}}), "none");
  EXPECT_EQ(problem({{line, line}, {line}, {line, line}}), "view 1 has 1 laser lines instead of 2");
  EXPECT_EQ(problem({{line, line}, {line, {}}, {line, {}}}),
            "laser line 1 lies on the pattern in 1 views, at least 2 are needed");
}

} // namespace
} // namespace vorn::mv
