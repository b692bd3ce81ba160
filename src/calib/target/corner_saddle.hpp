// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <optional>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

/// Where four squares of a board meet. Headers alone: the library of ChArUco boards, which sees no more of
/// this one than others do, measures by it too.
namespace vorn::mv {

/// Standard deviation of the Gaussian that images are smoothed by before saddles are looked for: of edges
/// sharper than pixels the samples do not tell the place.
constexpr double saddleSmoothing = 1;

/// The saddle of the grey levels in a window about a place: of the quadratic surface that fits them best,
/// points counting less towards the window's edge. None where that surface is none.
inline std::optional<cv::Point2d> saddleAround(cv::Mat const& grey, cv::Point2d const& centre, int half) {
  cv::Mat patch;
  cv::getRectSubPix(grey, {2 * half + 1, 2 * half + 1}, cv::Point2f(centre), patch, CV_32F);
  cv::Matx66d normal = cv::Matx66d::zeros();
  cv::Vec6d right;
  for (int y = -half; y <= half; ++y) {
    for (int x = -half; x <= half; ++x) {
      double const weight = std::max(0.0, half + 1 - std::hypot(x, y));
      cv::Vec6d const terms(x * x, x * y, y * y, x, y, 1);
      normal += weight * (terms * terms.t());
      right += weight * static_cast<double>(patch.at<float>(y + half, x + half)) * terms;
    }
  }
  cv::Vec6d const f = normal.solve(right, cv::DECOMP_CHOLESKY);
  double const bend = 4 * f[0] * f[2] - f[1] * f[1]; // below 0 for a saddle
  if (!(bend < 0)) {
    return std::nullopt;
  }
  return centre + cv::Point2d(f[1] * f[4] - 2 * f[2] * f[3], f[1] * f[3] - 2 * f[0] * f[4]) / bend;
}

/// The saddle that steps from a place lead to; none where they do not settle near it. The grey levels about
/// a corner are the same turned by half a turn, whatever the window, so that it draws nothing.
/// @param smooth CV_8UC1, by a Gaussian of `saddleSmoothing` or wider
/// @param half of the window, px: it must end before anything else than the four squares
/// @param farthest from the start, px
inline std::optional<cv::Point2d> settledSaddle(cv::Mat const& smooth, cv::Point2d const& start, int half,
                                                double farthest = 1) {
  constexpr int mostSteps = 30;
  constexpr double leastStep = 1e-3; // px
  cv::Point2d centre = start;
  for (int i = 0; i < mostSteps; ++i) {
    auto const saddle = saddleAround(smooth, centre, half);
    if (!saddle || cv::norm(*saddle - start) > farthest) {
      return std::nullopt;
    }
    double const step = cv::norm(*saddle - centre);
    centre = *saddle;
    if (step < leastStep) {
      break;
    }
  }
  return centre;
}

} // namespace vorn::mv
