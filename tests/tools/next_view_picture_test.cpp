// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/next_view_picture.hpp"

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <vorn/mv/geometry/rotation.hpp>
#include <vorn/mv/geometry/transform.hpp>

namespace vorn::tools {
namespace {

mv::CameraModel camera() {
  mv::CameraModel model;
  model.read(nlohmann::json::parse(R"({"Resolution": [640, 480], "Error": 0.1,
    "K": {"rows": 3, "cols": 3, "dt": "d", "data": [500, 0, 300, 0, 510, 250, 0, 0, 1]},
    "D": {"rows": 5, "cols": 1, "dt": "d", "data": [-0.1, 0.02, 0, 0, 0]}})"));
  return model;
}

/// A target of 100 x 60 mm with its lower right corner turned away, 400 mm before the camera.
mv::Calibration calibration() {
  mv::Calibration result;
  mv::Adjustment adjustment;
  adjustment.shape.objPnts = {{0, 0}, {100, 0}, {100, 60}, {0, 60}, {50, 30}};
  adjustment.poses = {mv::math::createTransform(mv::math::rotZ(0.1), {-30, -20, 420})};
  mv::NextView next;
  // By elementary turns: right goes away about -y, below about x.
  next.cam_from_target =
      mv::math::createTransform(mv::math::rotX(0.4) * mv::math::rotY(-0.4), {-50, -30, 400});
  next.pixel = {300, 250};
  next.distance = 400;
  next.tilt = 32;
  next.direction = 45;
  next.before = {0.02, 0.01, 0, 0.008, 100, 50, {}, 0, 100, {}};
  next.after = {0.01, 0.0042, 0, 0.003, 100, 50, {}, 0, 100, {}};
  result.report.adjustment = adjustment;
  result.report.nextView = next;
  return result;
}

TEST(NextViewPicture, SaysWhatIsFarther) {
  mv::AMat const picture = nextViewPicture(calibration(), camera());
  cv::Point3d const lowerRight(100, 60, 0);
  cv::Point3d const upperLeft(0, 0, 0);
  int said = 0;
  for (mv::Mark const& mark : picture.marks()) {
    said += mark.text == "farther" && mark.points[0] == lowerRight ? 1 : 0;
    said += mark.text == "nearer" && mark.points[0] == upperLeft ? 1 : 0;
  }
  EXPECT_EQ(said, 2);
  EXPECT_EQ(picture.draw().report.behindCamera, 0U);
  // The outline of the view that there is stands where its pose puts it: the mark is in the next one's frame.
  auto const outlined = std::find_if(picture.marks().begin(), picture.marks().end(),
                                     [](mv::Mark const& mark) { return mark.layer == "views so far"; });
  ASSERT_NE(outlined, picture.marks().end());
  cv::Matx44d const& pose = calibration().report.nextView->cam_from_target;
  cv::Vec3d const corner = mv::math::getR3(pose) * cv::Vec3d(outlined->points[2]) + mv::math::getT3(pose);
  cv::Vec3d const expected(-30 + 100 * std::cos(0.1) - 60 * std::sin(0.1),
                           -20 + 100 * std::sin(0.1) + 60 * std::cos(0.1), 420);
  EXPECT_LT(cv::norm(corner - expected), 1e-9);
}

TEST(NextViewPicture, SaysWhereInWords) {
  mv::NextView next = *calibration().report.nextView;
  EXPECT_EQ(
      nextViewText(next),
      "one more view would help most with the middle of the target 400 mm away, seen at pixel 300, 250, "
      "tilted by 32 degrees with its lower right corner (in the picture) farther away: shape 10.0 -> 4.2 "
      "um, lengths 8.0 -> 3.0 um");
  next.direction = 270;
  next.roll = 90;
  EXPECT_NE(placeText(next).find("upper side (in the picture) farther away, turned by 90 degrees"),
            std::string::npos);
  next.tilt = 0;
  EXPECT_NE(placeText(next).find("not tilted"), std::string::npos);
  next.after.rigid = 0.0099;
  EXPECT_NE(nextViewText(next).find("would help little"), std::string::npos);
}

} // namespace
} // namespace vorn::tools
