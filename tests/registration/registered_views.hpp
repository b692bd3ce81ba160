// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <functional>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <random>

#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn::test {

/// A point of a surface from two parameters, in mm.
using Surface = std::function<cv::Vec3d(double, double)>;

/// Bumps that hold all six degrees of freedom.
inline cv::Vec3d bumps(double u, double v) {
  return {u, v, 400.0 + 1.2 * std::sin(0.6 * u) * std::cos(0.5 * v) + 0.8 * std::sin(0.35 * v + 0.2 * u)};
}

/// A square grid of a surface, 0.1 apart from (u, v) on, with noise along each axis.
inline cv::Mat_<cv::Vec3f> view(Surface const& surface, int side, double u, double v, double sigma,
                                unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> noise(0.0, 1.0);
  cv::Mat_<cv::Vec3f> points(side, side);
  for (int row = 0; row < side; ++row) {
    for (int column = 0; column < side; ++column) {
      cv::Vec3d const error(noise(random), noise(random), noise(random));
      points(row, column) = surface(u + 0.1 * column, v + 0.1 * row) + sigma * error;
    }
  }
  return points;
}

/// A rotation about a point by a rotation vector in degrees, and a shift.
inline cv::Matx44d motionAbout(cv::Vec3d const& pivot, cv::Vec3d const& degrees, cv::Vec3d const& shift) {
  cv::Matx33d rotation;
  cv::Rodrigues(degrees * (CV_PI / 180.0), rotation);
  cv::Vec3d const offset = pivot + shift - rotation * pivot;
  return {rotation(0, 0),
          rotation(0, 1),
          rotation(0, 2),
          offset[0],
          rotation(1, 0),
          rotation(1, 1),
          rotation(1, 2),
          offset[1],
          rotation(2, 0),
          rotation(2, 1),
          rotation(2, 2),
          offset[2],
          0,
          0,
          0,
          1};
}

inline cv::Vec3d movePoint(cv::Matx44d const& motion, cv::Vec3d const& point) {
  cv::Vec4d const moved = motion * cv::Vec4d(point[0], point[1], point[2], 1.0);
  return {moved[0], moved[1], moved[2]};
}

inline cv::Mat_<cv::Vec3f> moveAll(cv::Matx44d const& motion, cv::Mat_<cv::Vec3f> const& points) {
  cv::Mat_<cv::Vec3f> moved(points.size());
  for (int i = 0; i < static_cast<int>(points.total()); ++i) {
    moved(i / points.cols, i % points.cols) =
        movePoint(motion, cv::Vec3d(points(i / points.cols, i % points.cols)));
  }
  return moved;
}

/// The small motion that a result is off by: rotation about a pivot in rad, and the shift of the pivot.
inline cv::Vec6d errorOf(cv::Matx44d const& found, cv::Matx44d const& truth, cv::Vec3d const& pivot) {
  cv::Matx44d const rest = found * truth.inv();
  cv::Vec3d turn;
  cv::Rodrigues(rest.get_minor<3, 3>(0, 0), turn);
  cv::Vec3d const shift = movePoint(rest, pivot) - pivot;
  return {turn[0], turn[1], turn[2], shift[0], shift[1], shift[2]};
}

} // namespace vorn::test
