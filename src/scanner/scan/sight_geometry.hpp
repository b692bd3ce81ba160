// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <Eigen/Core>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/calib/calibration_covariance.hpp>
#include <vorn/mv/calib/camera_model.hpp>

#include "calib/covariance_json.hpp"
#include "calib/projection.hpp"
#include "scanner/scan/scan_points.hpp"

namespace vorn::mv {

/// Derivatives of a point by all parameters that a calibration may have, in the order of
/// `calibrationParameter`.
using ByCalibration = Eigen::Matrix<double, 3, calibrationParameterCount>;
using CalibrationMatrix = Eigen::Matrix<double, calibrationParameterCount, calibrationParameterCount>;

/// The covariance of all parameters, 0 for those that are not named.
CalibrationMatrix wholeMatrix(CalibrationCovariance const& covariance);

/// How a scanner's points hang on what it measures and on its calibration: exactly, in double, in the
/// camera's frame.
class SightGeometry {
public:
  SightGeometry(CameraModel const& camera, CameraModel const& projector, cv::Matx44d const& cam_from_proj,
                MapCoordinate coordinate);

  /// The point that a pixel with this coordinate sees; NaN where its ray does not meet the light in front of
  /// both devices.
  cv::Vec3d pointOf(cv::Point2d const& pixel, double coordinate) const;

  /// The ray (x, y, 1) of a pixel of the camera; NaN where the lens has none.
  cv::Vec3d rayOf(cv::Point2d const& pixel) const;

  /// Whether both devices see a point within their images.
  bool isSeen(cv::Vec3d const& point) const;
  cv::Vec2d cameraPixelOf(cv::Vec3d const& point) const { return camera_(point); }
  cv::Vec2d projectorPixelOf(cv::Vec3d const& point) const { return projector_(inProjector(point)); }

  /// The coordinate that a point does not come from.
  struct Across {
    double coordinate = 0;
    /// By a small turn of the projector about its centre, in the camera's frame: the point moves along its
    /// pixel's ray then, so that the coordinate that it comes from stays.
    cv::Vec3d byTurn;
  };
  Across across(cv::Vec3d const& point) const;

  /// How a point moves with its coordinate.
  cv::Vec3d byCoordinate(cv::Vec3d const& point) const;
  /// How the point that its pixel and coordinate give moves with the parameters of the calibration.
  ByCalibration byCalibration(cv::Vec3d const& point) const;

  cv::Size const& cameraSize() const { return cameraSize_; }

private:
  cv::Vec3d inProjector(cv::Vec3d const& point) const { return proj_from_cam_ * (point - centre_); }
  double depthInPlane(cv::Vec3d const& ray, double coordinate, double across) const;

  CameraNumbers cameraNumbers_;
  CameraNumbers projectorNumbers_;
  Projection camera_;
  Projection projector_;
  Undistortion cameraRays_;
  Undistortion projectorRays_;
  cv::Size cameraSize_;
  cv::Size projectorSize_;
  cv::Matx33d proj_from_cam_;
  cv::Vec3d centre_; ///< the projector's, in the camera's frame
  int axis_;         ///< of the projector's pixel that is the coordinate
};

} // namespace vorn::mv
