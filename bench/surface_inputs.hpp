// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <random>

/// Scans of a surface that is known exactly. Lengths are in millimetres.
namespace vorn::bench {

struct NoisyScan {
  cv::Mat_<cv::Vec3f> points;
  cv::Mat_<cv::Vec3f> normals; ///< of the surface without noise, towards the origin
};

/// A square organized scan of a wavy surface 500 in front of the origin: spacing 0.1, noise of sigma 0.02
/// along each axis, a share of the points NaN.
inline NoisyScan noisyScan(int side, double missing, unsigned seed = 1) {
  constexpr double spacing = 0.1;
  std::mt19937 random(seed);
  std::normal_distribution<float> noise(0.0F, 0.02F);
  std::uniform_real_distribution<double> chance(0.0, 1.0);
  NoisyScan scan{cv::Mat_<cv::Vec3f>(side, side), cv::Mat_<cv::Vec3f>(side, side)};
  for (int row = 0; row < side; ++row) {
    for (int column = 0; column < side; ++column) {
      double const x = spacing * (column - side / 2);
      double const y = spacing * (row - side / 2);
      cv::Vec3d const point(x, y, 500.0 + 3.0 * std::sin(0.1 * x) * std::cos(0.08 * y) + 0.002 * x * y);
      cv::Vec3d const normal(0.3 * std::cos(0.1 * x) * std::cos(0.08 * y) + 0.002 * y,
                             -0.24 * std::sin(0.1 * x) * std::sin(0.08 * y) + 0.002 * x, -1.0);
      scan.points(row, column) = cv::Vec3f(point) + cv::Vec3f(noise(random), noise(random), noise(random));
      scan.normals(row, column) = normal * (1.0 / cv::norm(normal));
      if (chance(random) < missing) {
        scan.points(row, column)[2] = std::numeric_limits<float>::quiet_NaN();
      }
    }
  }
  return scan;
}

/// RMS angle of normals to the true ones, whichever side they point to, in degrees; where they are no numbers
/// or (0, 0, 0) they do not count.
inline double rmsAngle(cv::Mat_<cv::Vec3f> const& normals, cv::Mat_<cv::Vec3f> const& truth) {
  double sum = 0.0;
  double count = 0.0;
  for (int row = 0; row < normals.rows; ++row) {
    for (int column = 0; column < normals.cols; ++column) {
      cv::Vec3d const cross = cv::Vec3d(normals(row, column)).cross(cv::Vec3d(truth(row, column)));
      double const sine = cv::norm(cross);
      if (cv::Vec3d(normals(row, column)).dot(cv::Vec3d(normals(row, column))) > 0.5 && std::isfinite(sine)) {
        double const angle = std::asin(std::min(1.0, sine)) * 180.0 / CV_PI;
        sum += angle * angle;
        count += 1.0;
      }
    }
  }
  return std::sqrt(sum / count);
}

/// Two scans of the same surface with other noise, the source 0.3 mm and 0.3 degrees from its place.
struct MovedScans {
  cv::Mat_<cv::Vec3f> source;
  cv::Mat_<cv::Vec3f> target;
  cv::Matx44d sourceFromTarget;

  /// How far a transform of the source leaves the target's middle from its place, in mm.
  double errorOfMiddle(cv::Matx44d const& targetFromSource) const {
    cv::Vec4d const middle(0.0, 0.0, 500.0, 1.0);
    cv::Vec4d const error = targetFromSource * (sourceFromTarget * middle) - middle;
    return std::sqrt(error.dot(error));
  }
};

inline MovedScans movedScans(int side) {
  MovedScans scans{noisyScan(side, 0.0, 2).points, noisyScan(side, 0.0, 1).points, cv::Matx44d::eye()};
  cv::Vec3d const middle(0.0, 0.0, 500.0);
  cv::Vec3d const shift(0.2, -0.15, 0.166);
  cv::Matx33d rotation;
  cv::Rodrigues(cv::Vec3d(1.0, 2.0, -1.0) * (0.3 * CV_PI / 180.0 / std::sqrt(6.0)), rotation);
  cv::Vec3d const offset = middle + shift - rotation * middle;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      scans.sourceFromTarget(i, j) = rotation(i, j);
    }
    scans.sourceFromTarget(i, 3) = offset[i];
  }
  for (cv::Vec3f& point : scans.source) {
    point = rotation * cv::Vec3d(point) + offset;
  }
  return scans;
}

} // namespace vorn::bench
