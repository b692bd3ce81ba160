// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/types.hpp>

namespace vorn::mv {

/// What an adjustment found out about the true shape of its target.
///
/// The deviations have no part that poses or the pitch would take up: no shift, no turn, no tilt, no change
/// of the mean pitch.
struct TargetShape {
  /// How the deviations are described.
  enum class Kind {
    Flat,   ///< every dot is where it should be
    Smooth, ///< polynomials over the target: its height to a degree of 2 or 6, its dots' places in the plane
            ///< to a degree of 1 or 3
    Dots    ///< each dot by itself
  };

  /// How the deviations are described.
  Kind kind = Kind::Flat;
  /// Of a smooth shape, the degree of its height: 2 or 6; else 0.
  int degree = 0;
  /// The dots that any view shows, by their places on the perfect target.
  std::vector<cv::Point2f> objPnts;
  /// Where each of those dots is minus where it should be, in the target's frame and unit: x to the right, y
  /// down, z away from the camera. All 0 for a flat target.
  std::vector<cv::Point3d> deviations;
  /// How high the ends along x lie over the middle, of the best quadratic surface; 0 for a flat target.
  double sagX = 0;
  /// The same along y.
  double sagY = 0;
  /// How high one pair of opposite corners lies over the mean of all four, of that surface.
  double twist = 0;
  /// Root mean square of the deviations' lengths.
  double rms = 0;
  /// The greatest part of the shape as a multiple of its standard deviation; 0 for a flat target. Parts of a
  /// few are chance.
  double significance = 0;
  /// `Adjustment::s0` with a flat target; much greater than that with the shape where the target is bent.
  double flatS0 = 1;
};

} // namespace vorn::mv
