// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

namespace vorn::mv {

/// The polynomials of OpenCV's lens model: radial (k), tangential (p), thin prism (s).
struct Lens {
  double k1 = 0, k2 = 0, p1 = 0, p2 = 0, k3 = 0, k4 = 0, k5 = 0, k6 = 0, s1 = 0, s2 = 0, s3 = 0, s4 = 0;
};

/// The radius of rays (their distance from the axis at depth 1) at which the image radius stops growing: what
/// lies farther out is imaged among what lies within. 20, of rays at 87 degrees, where it does not.
double validRadius(Lens const& lens);

/// K and D as numbers.
struct CameraNumbers {
  double fx = 1, fy = 1, cx = 0, cy = 0;
  Lens lens;
  bool isTilted = false;
  /// From the lens's plane to the tilted sensor, homogeneous.
  cv::Matx33d tilt = cv::Matx33d::eye();
};

/// @param K camera matrix, 3 x 3; skew is ignored, as OpenCV does
/// @param D empty, or a row or column of 4, 5, 8, 12 or 14 coefficients
/// @throws Exception for other sizes, and for a K without focal lengths
CameraNumbers cameraNumbers(cv::Mat const& K, cv::Mat const& D);

/// The exact inverse of OpenCV's lens model: from pixels to viewing rays.
///
/// Newton's method in double runs until the ray is exact, where OpenCV's default stops after five rounds of a
/// fixed-point scheme. A strong polynomial folds over at some radius: a pixel that no ray inside that radius
/// is imaged to gets NaN.
class Undistortion {
public:
  /// @throws Exception as `cameraNumbers`
  Undistortion(cv::Mat const& K, cv::Mat const& D);

  /// Replaces `count` pixel coordinates by the normalised ones of their rays: the ray is (x, y, 1).
  void toRays(double* x, double* y, std::size_t count) const;

private:
  void toLensPlane(double& x, double& y) const;
  void solveBlock(double* x, double* y, std::size_t count) const;
  cv::Point2d solveCarefully(double targetX, double targetY) const;

  CameraNumbers camera_;
  cv::Matx33d untilt_;
  /// Where the radial polynomial stops growing: beyond it, one pixel would have two rays.
  double validRadius_ = 0;
};

/// The rays of pixels, as normalised coordinates.
std::vector<cv::Point2d> undistorted(cv::Mat const& K, cv::Mat const& D,
                                     std::vector<cv::Point2f> const& pixels);

/// Checks the camera matrix and the distortion coefficients before they are used.
/// @throws Exception that says what is wrong with them
void checkCamera(cv::Mat const& K, cv::Mat const& D);

} // namespace vorn::mv
