// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

namespace vorn::mv::sl {

/// The geometry of one camera and one projector.
struct TriangulationSetup {
  cv::Mat_<cv::Vec2f> cameraMap;    ///< normalized coordinates of every camera pixel
  cv::Mat_<cv::Vec2f> projectorMap; ///< normalized coordinates of every projector pixel
  cv::Matx44d camFromProj;
  cv::Matx44d poseFromCam;
};

/// Points from decoded projector columns: each camera ray meets the plane of light of its column.
///
/// The light of a column is a plane only without lens distortion. So the plane through the column's first and
/// last row gives a first point, that point the row in which the projector sees it, and the plane through the
/// column two rows above and two below that row the final one.
/// @param columns roi.height x roi.width, projector pixels; valid in (0, W - 1)
/// @param xyz     of the same size; takes points in the frame of the pose, (0, 0, -1) where invalid
void triangulateColumns(TriangulationSetup const& setup, cv::Mat_<float> const& columns, cv::Rect const& roi,
                        cv::Mat_<cv::Vec3f>& xyz);

/// Rows and columns at each border of a map that `triangulateRows` leaves out.
constexpr int leftOut = 2;

/// Points from decoded projector rows: each camera ray meets the plane of light through two points of its
/// row, at a third and at two thirds of the projector's width.
///
/// The outermost `leftOut` rows and columns of the map are left as they are.
/// @param rows roi.height x roi.width, projector pixels; valid in (0, H - 1)
/// @param xyz  of the same size; takes points in the camera frame, (0, 0, -FLT_MAX) where invalid
void triangulateRows(TriangulationSetup const& setup, cv::Mat_<float> const& rows, cv::Rect const& roi,
                     cv::Mat_<cv::Vec3f>& xyz);

/// Makes what `triangulateRows` leaves out (0, 0, 0).
void clearLeftOut(cv::Mat_<cv::Vec3f>& xyz);

} // namespace vorn::mv::sl
