// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>
#include <vector>

#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/calib/adjustment.hpp>

#include "calib/adjust/bundle.hpp"

namespace vorn::mv {

/// An adjustment's bundle again: its dots, lenses, poses and the target's shape, known but free to change
/// that may still change. Weighted by the noise that neighbours do not share.
/// @throws Exception for views of other dots than the adjustment's
Bundle solvedBundle(std::vector<AdjustmentView> const& views, Adjustment const& adjustment);

/// The weighted squares of a solved bundle a degree of freedom, its root.
double bundleS0(Bundle const& bundle);

/// The linear part of the best affine map from points to others; NaN marks those that do not count. Zeros for
/// too few.
cv::Matx22d affineMapOf(std::vector<cv::Point2f> const& from, std::vector<cv::Point2f> const& to);

/// The sign of the determinant of the best affine map from the target to a device's image; 0 for too few
/// dots.
double handednessOf(AdjustmentView const& view, int device);

/// The share of 8 x 6 cells of a device's image that hold dots of any view.
double coverageOf(std::vector<AdjustmentView> const& views, int device, cv::Size const& size);

/// The greatest angle between the target's normals in any two poses, degrees.
double greatestTiltOf(std::vector<cv::Matx44d> const& poses);

/// A dot's place on the target and in the camera's image.
struct SeenDot {
  std::pair<float, float> place;
  cv::Point2f pixel;
};
/// In the order of their places.
using SeenDots = std::vector<SeenDot>;

/// The dots that a view's camera sees.
SeenDots seenDotsOf(AdjustmentView const& view);

/// The root mean square of what common dots move by in the camera's image between two views; infinity for too
/// few.
double motionBetween(SeenDots const& a, SeenDots const& b);

/// Radians between two turns.
double angleBetween(cv::Matx33d const& a, cv::Matx33d const& b);

} // namespace vorn::mv
