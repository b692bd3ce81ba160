// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/device_outlines.hpp"

#include <cctype>
#include <cmath>

namespace vorn::tools {

namespace {

cv::Point3d moved(cv::Matx44d const& transform, cv::Vec3d const& point) {
  cv::Vec4d const p = transform * cv::Vec4d(point[0], point[1], point[2], 1.0);
  return {p[0], p[1], p[2]};
}

cv::Vec3d axis(cv::Matx44d const& transform, int column) {
  return {transform(0, column), transform(1, column), transform(2, column)};
}

} // namespace

PageOutline frustumOf(mv::CameraModel const& device, cv::Matx44d const& world_from_device, double depth,
                      std::string const& name, cv::Vec3b const& color) {
  cv::Matx33d const k = device.getK();
  cv::Size const size = device.getResolution();
  constexpr double half = 0.5; // pixel centres are whole numbers
  auto const corner = [&](double x, double y) {
    return moved(world_from_device,
                 {depth * (x - half - k(0, 2)) / k(0, 0), depth * (y - half - k(1, 2)) / k(1, 1), depth});
  };
  cv::Point3d const eye = moved(world_from_device, {0, 0, 0});
  cv::Point3d const a = corner(0, 0);
  cv::Point3d const b = corner(size.width, 0);
  cv::Point3d const c = corner(size.width, size.height);
  cv::Point3d const d = corner(0, size.height);
  PageOutline outline;
  outline.name = name;
  outline.group = "devices";
  outline.color = color;
  outline.lines = {{eye, a}, {eye, b}, {eye, c}, {eye, d}, {a, b, c, d, a}};
  outline.face = {a, b, c, d};
  return outline;
}

PageView viewOf(mv::CameraModel const& device, cv::Matx44d const& world_from_device,
                std::string const& name) {
  constexpr double degrees = 180.0 / CV_PI;
  double const halfHeight = 0.5 * device.getResolution().height / cv::Matx33d(device.getK())(1, 1);
  PageView view;
  view.name = name;
  view.name[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(view.name[0])));
  view.eye = moved(world_from_device, {0, 0, 0});
  view.forward = axis(world_from_device, 2);
  view.down = axis(world_from_device, 1);
  view.fieldOfView = 2.0 * std::atan(halfHeight) * degrees;
  return view;
}

} // namespace vorn::tools
