// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>

#include <opencv2/core/mat.hpp>

#include <vorn/mv/geometry/sphere3f.hpp>

namespace vorn::tools {

/// A ball in a scan.
struct ScannedBall {
  mv::Sphere3f sphere;    ///< in the points' frame
  std::size_t points = 0; ///< that it was fitted to
  double form = 0;        ///< their form error, mm
  cv::Matx33d covariance; ///< of its centre, from the points' scatter
};

/// The distance between the centres of two balls.
struct BallLength {
  std::array<ScannedBall, 2> balls;
  double length = 0; ///< mm
  double sigma = 0;  ///< one standard deviation from the points' scatter, mm
};

/// The ball that shows at a pixel: a sphere through the points that hang together with the one there.
/// @param xyz points on the camera's grid, NaN where there is none
/// @param at  a pixel on the ball, or at most five beside one that has a point
/// @throws Exception that names the pixel, where there is no point, or where the points about it make no ball
ScannedBall findBall(cv::Mat_<cv::Vec3f> const& xyz, cv::Point const& at);

/// @throws Exception as `findBall`, and for two pixels on one ball
BallLength measureBalls(cv::Mat_<cv::Vec3f> const& xyz, cv::Point const& first, cv::Point const& second);

} // namespace vorn::tools
