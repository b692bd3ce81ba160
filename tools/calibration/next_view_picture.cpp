// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/next_view_picture.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <sstream>
#include <vector>

#include <opencv2/core.hpp>

namespace vorn::tools {

namespace {

/// The side of the target that a direction in the image points to.
std::string sideOf(double direction) {
  static constexpr std::array<char const*, 8> sides{
      "right side", "lower right corner", "lower side", "lower left corner",
      "left side",  "upper left corner",  "upper side", "upper right corner"};
  constexpr double step = 360.0 / sides.size();
  return sides[static_cast<std::size_t>(std::lround(direction / step)) % sides.size()];
}

/// The corners of the rectangle that holds dots, in the target's frame.
std::vector<cv::Point3d> cornersOf(std::vector<cv::Point2f> const& dots) {
  cv::Point2d low = dots.front();
  cv::Point2d high = dots.front();
  for (cv::Point2f const& dot : dots) {
    low = {std::min(low.x, static_cast<double>(dot.x)), std::min(low.y, static_cast<double>(dot.y))};
    high = {std::max(high.x, static_cast<double>(dot.x)), std::max(high.y, static_cast<double>(dot.y))};
  }
  return {{low.x, low.y, 0}, {high.x, low.y, 0}, {high.x, high.y, 0}, {low.x, high.y, 0}};
}

cv::Point3d placed(cv::Matx44d const& transform, cv::Point3d const& p) {
  cv::Vec4d const q = transform * cv::Vec4d(p.x, p.y, p.z, 1);
  return {q[0], q[1], q[2]};
}

/// Says at the sides that lie nearest and farthest which they are.
void addDepths(mv::AMat& picture, mv::NextView const& next, std::vector<cv::Point3d> const& corners) {
  constexpr double least = 1; // degree, below which no side is farther away
  if (next.tilt < least) {
    return;
  }
  std::vector<cv::Point3d> ends = corners;
  for (std::size_t i = 0; i < corners.size(); ++i) {
    ends.push_back(0.5 * (corners[i] + corners[(i + 1) % corners.size()]));
  }
  double const across = next.direction * CV_PI / 180;
  auto const along = [&](cv::Point3d const& p) { // outwards where the side lies that is farther away
    cv::Matx44d const& pose = next.cam_from_target;
    return std::cos(across) * (pose(0, 0) * p.x + pose(0, 1) * p.y) +
           std::sin(across) * (pose(1, 0) * p.x + pose(1, 1) * p.y);
  };
  auto const [nearer, farther] =
      std::minmax_element(ends.begin(), ends.end(), [&](cv::Point3d const& a, cv::Point3d const& b) {
        constexpr double rounding = 1e-6; // the middle of a side, not one of its two ends
        return along(a) < along(b) - rounding * (1 + std::abs(along(b)));
      });
  mv::MarkStyle style;
  style.font = mv::FontSize::Large;
  picture.addText(*nearer, "nearer", style);
  picture.addText(*farther, "farther", style);
}

} // namespace

std::string placeText(mv::NextView const& next) {
  std::ostringstream text;
  text << "the middle of the target " << std::lround(next.distance) << " mm away, seen at pixel "
       << std::lround(next.pixel.x) << ", " << std::lround(next.pixel.y);
  if (next.tilt > 0) {
    text << ", tilted by " << std::lround(next.tilt) << " degrees with its " << sideOf(next.direction)
         << " (in the picture) farther away";
  } else {
    text << ", not tilted";
  }
  if (next.roll != 0) {
    text << ", turned by " << std::lround(next.roll) << " degrees in its plane";
  }
  return text.str();
}

std::string nextViewText(mv::NextView const& next) {
  constexpr double micrometres = 1000;
  constexpr double worthwhile = 0.95;
  std::ostringstream text;
  text.precision(1);
  text << std::fixed
       << (next.after.rigid < worthwhile * next.before.rigid ? "one more view would help most with "
                                                             : "one more view would help little; most with ")
       << placeText(next) << ": shape " << micrometres * next.before.rigid << " -> "
       << micrometres * next.after.rigid << " um";
  if (next.before.barCount > 0) {
    text << ", lengths " << micrometres * next.before.bar << " -> " << micrometres * next.after.bar << " um";
  }
  return text.str();
}

mv::AMat nextViewPicture(mv::Calibration const& calibration, mv::CameraModel const& camera) {
  mv::Adjustment const& adjustment = *calibration.report.adjustment;
  mv::NextView const& next = *calibration.report.nextView;
  constexpr double ground = 235;
  mv::AMat picture(cv::Mat(camera.getResolution(), CV_8UC1, cv::Scalar(ground)));
  picture.setTitle("where to hold the target next (green), in the camera's image; views so far (violet)");
  picture.setView(camera, next.cam_from_target);
  std::vector<cv::Point3d> const corners = cornersOf(adjustment.shape.objPnts);
  cv::Matx44d const target_from_cam = next.cam_from_target.inv();
  mv::MarkStyle before;
  before.meaning = mv::Meaning::Reference;
  before.width = 1;
  before.hasHalo = false;
  for (cv::Matx44d const& pose : adjustment.poses) {
    std::vector<cv::Point3d> outline;
    for (cv::Point3d const& corner : corners) {
      outline.push_back(placed(target_from_cam * pose, corner));
    }
    picture.addPolygon(outline, before, "views so far");
  }
  mv::MarkStyle style;
  style.meaning = mv::Meaning::Found;
  style.color = mv::colorOf(mv::Meaning::Found, mv::Ground::Light);
  style.width = 3;
  style.hasHalo = false;
  picture.addPolygon(corners, style, "next view");
  for (cv::Point2f const& dot : adjustment.shape.objPnts) {
    picture.addPoint(cv::Point3d(static_cast<double>(dot.x), static_cast<double>(dot.y), 0), style,
                     "next view");
  }
  addDepths(picture, next, corners);
  return picture;
}

} // namespace vorn::tools
