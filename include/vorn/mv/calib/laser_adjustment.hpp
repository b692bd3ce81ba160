// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/core/observer.hpp>
#include <vorn/mv/calib/adjustment.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/geometry/plane3f.hpp>

namespace vorn::mv {

/// What a camera saw of a target and of laser lines on it in one pose.
struct LaserAdjustmentView {
  /// The dots; without points of a second device.
  AdjustmentView dots;
  /// The pixels of each laser's line on the target, one list a laser; empty where it misses the target.
  std::vector<std::vector<cv::Point2f>> lines;
};

/// A laser's plane in an adjustment.
struct AdjustedPlane {
  Plane3f plane;      ///< in the camera's frame
  int pointCount = 0; ///< of its line in all views
  /// Root mean square of what the points lie off the plane, across the line in the image, pixels.
  double rms = 0;
  /// One standard deviation of where the plane lies, along its normal: root mean square over the points, in
  /// the target's unit.
  double sigma = 0;
};

/// The result of `adjustLasers`.
struct LaserAdjustment {
  /// Lens, poses, the target's shape and the noise of the dots; its `covariance` is that of the lens within
  /// the whole.
  Adjustment camera;
  /// In the order of the lines.
  std::vector<AdjustedPlane> planes;
  /// What the rows of `covariance` are: those of `camera`, then "nx_0", "ny_0", "nz_0", "d_0" of the first
  /// plane, the points x of which have n x = d, and so on.
  std::vector<std::string> parameters;
  /// The covariance of the parameters, n x n CV_64F, poses unknown as they are. That of a normal has rank 2.
  cv::Mat covariance;
};

/// The lens, the poses and the laser planes that fit dots and lines best, in one least-squares adjustment.
///
/// Starts from `adjustCamera` on the dots and from planes through the lines. A point of a line says that
/// where its pixel sees the target, the target meets the plane; its residual is how far the pixel lies off
/// the line that the plane draws, and counts by the noise that the line itself shows. The target keeps the
/// shape that the dots gave it. The same input gives the same bits. Working memory: that of `adjustCamera`,
/// 100 bytes a line point.
/// @param views  as of `adjustCamera`, each with one list a laser; at least 2 views show points of each laser
/// @param camera as of `adjustCamera`
/// @throws Exception for views or settings that cannot be used, which it names, and when the views do not
///         determine the planes; `Cancelled` when the observer stops it
[[nodiscard]] VORN_API LaserAdjustment adjustLasers(std::vector<LaserAdjustmentView> const& views,
                                                    CameraModel const& camera,
                                                    AdjustmentSettings const& settings = {},
                                                    Observer* observer = nullptr);

} // namespace vorn::mv
