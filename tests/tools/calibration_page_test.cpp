// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/calib3d.hpp>

#include "tools/calibration/calibration_page.hpp"
#include "tools/calibration/device_outlines.hpp"

namespace vorn::tools {
namespace {

cv::Matx33d const k(500, 0, 300, 0, 510, 250, 0, 0, 1);
cv::Size const size(640, 480);

mv::CameraModel camera() {
  nlohmann::json json;
  json["Resolution"] = {size.width, size.height};
  auto const matrix = [](std::vector<double> const& values, int rows, int cols) {
    return nlohmann::json{{"rows", rows}, {"cols", cols}, {"dt", "d"}, {"data", values}};
  };
  json["K"] = matrix({k.val, k.val + 9}, 3, 3);
  json["D"] = matrix({0, 0, 0, 0, 0}, 5, 1);
  json["Error"] = 0.1;
  mv::CameraModel model;
  model.read(json);
  return model;
}

/// The target at a pose, as the camera sees it exactly.
mv::CalibratedView viewAt(std::string const& name, cv::Vec3d const& turn, cv::Vec3d const& place) {
  mv::ViewPoints points;
  std::vector<cv::Point3f> dots;
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 5; ++x) {
      // A part of a target that does not hold its origin.
      points.objPnts.emplace_back(static_cast<float>(10 * x + 20), static_cast<float>(10 * y - 60));
      dots.emplace_back(points.objPnts.back().x, points.objPnts.back().y, 0.0F);
    }
  }
  cv::projectPoints(dots, turn, place, k, cv::noArray(), points.imgPnts);
  points.residuals.assign(dots.size(), cv::Point2f(0.3F, 0.4F));
  mv::CalibratedView view;
  view.name = name;
  view.devices = {points};
  return view;
}

mv::CameraCalibration calibration() {
  mv::CameraCalibration result;
  result.object = camera();
  result.views = {viewAt("pose_00", {0.3, -0.2, 0.1}, {5, -20, 400}),
                  viewAt("pose_01", {-0.4, 0.1, 1.0}, {-30, 10, 500})};
  mv::CalibratedView blind;
  blind.name = "pose_02";
  blind.reason = "no target";
  blind.devices.resize(1);
  result.views.push_back(blind);
  result.report.devices = {{"camera", size, 0.5, 0.0, false}};
  return result;
}

double distanceTo(std::vector<cv::Point3d> const& points, cv::Point3d const& wanted) {
  double nearest = 1e9;
  for (cv::Point3d const& p : points) {
    nearest = std::min(nearest, cv::norm(p - wanted));
  }
  return nearest;
}

TEST(CalibrationPage, BoardsStandWhereTheTargetStood) {
  Page page;
  describeCalibration(page, calibration());
  ASSERT_EQ(page.outlines.size(), 3U) << "two boards and the camera";
  cv::Matx33d rotation;
  cv::Rodrigues(cv::Vec3d(-0.4, 0.1, 1.0), rotation);
  for (cv::Vec3d const& corner :
       {cv::Vec3d(20, -60, 0), cv::Vec3d(60, -60, 0), cv::Vec3d(60, -30, 0), cv::Vec3d(20, -30, 0)}) {
    cv::Point3d const wanted(cv::Vec3d(rotation * corner + cv::Vec3d(-30, 10, 500)));
    EXPECT_LT(distanceTo(page.outlines[1].face, wanted), 0.02) << corner;
  }
  EXPECT_EQ(page.outlines[1].name, "pose_01");
  EXPECT_EQ(page.outlines[1].group, page.outlines[0].group);
}

TEST(CalibrationPage, DotsBearTheirErrors) {
  Page page;
  describeCalibration(page, calibration());
  ASSERT_EQ(page.clouds().size(), 1U);
  nlohmann::json const& dots = page.clouds()[0].description;
  EXPECT_EQ(dots["count"], 40);
  EXPECT_EQ(dots["coloredBy"], dots["fields"][0]["name"]);
  EXPECT_NEAR(dots["fields"][0]["low"], 0.5, 1e-6) << "the length of (0.3, 0.4)";
}

TEST(CalibrationPage, SaysWhatIsWrong) {
  Page page;
  describeCalibration(page, calibration());
  auto const tells = [&](PageFinding::Weight weight, std::string const& words) {
    return std::any_of(page.findings.begin(), page.findings.end(), [&](PageFinding const& finding) {
      return finding.weight == weight && finding.text.find(words) != std::string::npos;
    });
  };
  EXPECT_TRUE(tells(PageFinding::Weight::Failure, "camera"));
  EXPECT_TRUE(tells(PageFinding::Weight::Warning, "pose_02 was left out: no target"));
  for (PageTable const& table : page.tables) {
    for (auto const& row : table.rows) {
      EXPECT_EQ(row.size(), table.head.size()) << table.title;
    }
  }
}

TEST(DeviceOutlines, FrustumMeetsTheCornersOfTheImage) {
  cv::Matx44d const world_from_cam(0, 0, 1, 7, -1, 0, 0, 8, 0, -1, 0, 9, 0, 0, 0, 1);
  PageOutline const outline = frustumOf(camera(), world_from_cam, 200.0, "camera", {});
  PageView const view = viewOf(camera(), world_from_cam, "camera");
  EXPECT_LT(cv::norm(view.eye - cv::Point3d(7, 8, 9)), 1e-12);
  EXPECT_EQ(view.forward, cv::Vec3d(1, 0, 0));
  EXPECT_EQ(view.down, cv::Vec3d(0, 0, -1));
  EXPECT_NEAR(std::tan(view.fieldOfView * CV_PI / 360.0), 240.0 / 510.0, 1e-9);
  ASSERT_EQ(outline.face.size(), 4U);
  cv::Matx33d const cam_from_world = world_from_cam.get_minor<3, 3>(0, 0).t();
  std::vector<cv::Point2d> pixels;
  cv::Vec3d const place = cam_from_world * cv::Vec3d(-7, -8, -9);
  cv::Vec3d turn;
  cv::Rodrigues(cam_from_world, turn);
  cv::projectPoints(outline.face, turn, place, k, cv::noArray(), pixels);
  std::vector<cv::Point2d> const corners{{-0.5, -0.5}, {639.5, -0.5}, {639.5, 479.5}, {-0.5, 479.5}};
  for (std::size_t i = 0; i < corners.size(); ++i) {
    EXPECT_LT(cv::norm(pixels[i] - corners[i]), 1e-6) << i;
    EXPECT_NEAR(outline.face[i].x, 207.0, 1e-9) << "200 mm along the axis";
  }
}

} // namespace
} // namespace vorn::tools
