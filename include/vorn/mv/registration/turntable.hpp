// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/matx.hpp>
#include <vector>

#include <vorn/core/export.hpp>

namespace vorn::mv {

/// The axis that views of a part on a turntable turn about, in the common frame.
struct TurntableAxis {
  cv::Vec3d direction;        ///< of length 1; angles count counter-clockwise when it points to the viewer
  cv::Vec3d point;            ///< on the axis, the nearest to the frame's origin
  std::vector<double> angles; ///< of each view against the first one, rad, above -pi to pi
  double rms = 0.0;           ///< how far points on the axis move from view to view, RMS
};

/// Finds the axis from where two or more views lie, as `registerClouds` or `registerViews` has found: all
/// motions between views are turns about it. Best with turns between 30 and 150 degrees.
/// @param frameFromView places of views in the common frame
/// @throws Exception for fewer than two views, motions that are not rigid, and views that turn by less than
/// half
///         a degree against each other
VORN_API TurntableAxis findTurntableAxis(std::vector<cv::Matx44d> const& frameFromView);

/// Where further views of the turntable lie: the start for `registerViews`.
/// @param first  where a view lies in the common frame
/// @param angles by which the others are turned against it, rad, in the sense of the axis
/// @return one for each angle
VORN_API std::vector<cv::Matx44d> turntablePlaces(TurntableAxis const& axis, cv::Matx44d const& first,
                                                  std::vector<double> const& angles);

} // namespace vorn::mv
