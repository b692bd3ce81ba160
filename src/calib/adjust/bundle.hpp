// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <Eigen/Core>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include "calib/adjust/shape_basis.hpp"
#include "calib/undistortion.hpp"

namespace vorn::mv {

/// A rigid transform that an adjustment moves: turned in the frame that it leads to, then shifted.
struct Placement {
  cv::Matx33d R = cv::Matx33d::eye();
  cv::Vec3d t;

  static Placement of(cv::Matx44d const& M);
  cv::Matx44d matrix() const;
  /// Turned by a small rotation vector and shifted: R' = exp(turn) R, t' = t + shift.
  Placement moved(cv::Vec3d const& turn, cv::Vec3d const& shift) const;
};

/// A dot of the target in one view.
struct BundleDot {
  int target = 0; ///< its index on the target
  int source = 0; ///< its index in the view as given
  bool has0 = false;
  bool has1 = false;
  cv::Vec2d point0; ///< pixel in device 0
  cv::Vec2d point1; ///< pixel in device 1
  /// Of its squares in device 0 and in device 1, along x and along y: 1 for a dot of usual exactness.
  cv::Vec2d weights[2] = {{1, 1}, {1, 1}};
};

struct BundleView {
  std::vector<BundleDot> dots;
  Placement dev0_from_target;
  int station = 0; ///< which transform between the devices it has
};

/// A camera or projector and which of its numbers are free, by their indices in `Projection`'s order.
struct BundleDevice {
  CameraNumbers numbers;
  std::vector<int> freeParameters;

  void move(double const* steps);
};

/// All unknowns and observations of an adjustment.
struct Bundle {
  std::vector<cv::Point2f> target;
  ShapeBasis shape;
  Eigen::VectorXd shapeParameters;
  std::vector<BundleDevice> devices;
  Placement dev0_from_dev1;
  /// Further transforms between the devices, of views whose station is 1 and so on: where a device was moved.
  std::vector<Placement> otherStations;
  /// What the target's dots are known to be off by; none when empty.
  std::vector<cv::Vec3d> knownDeviations;
  std::vector<BundleView> views;
  /// Whether the points of device 1 were read where device 0 sees the dots.
  bool isRead = false;
  /// Noise of one coordinate of a dot of weight 1: of device 0 and of device 1 (less what device 0 explains
  /// when `isRead`).
  double sigma[2] = {1, 1};

  /// Parameters without poses: devices, transform, shape.
  int commonCount() const { return deviceCount() + transformCount() + shape.parameterCount(); }
  /// Those of all devices.
  int deviceCount() const;
  int transformCount() const {
    return devices.size() > 1 ? 6 * (1 + static_cast<int>(otherStations.size())) : 0;
  }
  Placement const& dev0_from_dev1_of(BundleView const& view) const {
    return view.station == 0 ? dev0_from_dev1 : otherStations[static_cast<std::size_t>(view.station) - 1];
  }
  cv::Vec3d dotInTarget(int target) const;
  /// Goes over to another shape that holds the present one.
  void extendShape(ShapeBasis::Level level);
};

} // namespace vorn::mv
