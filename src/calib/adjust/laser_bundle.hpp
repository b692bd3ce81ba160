// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <vector>

#include <Eigen/Core>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/calib/target_shape.hpp>

#include "calib/adjust/bundle.hpp"
#include "calib/adjust/normal_equations.hpp"

namespace vorn::mv {

/// How far a bent target's surface stands from its plane, between its dots too.
class SurfaceHeight {
public:
  SurfaceHeight() = default;
  /// @param dots what the shape is known of, with the ways in which it may be another
  explicit SurfaceHeight(TargetShape const& shape, Bundle const& dots);

  double at(double x, double y) const;
  /// What the parameters of the bundle's shape move the surface by.
  Eigen::VectorXd byShape(double x, double y) const { return byShape_.transpose() * terms(x, y); }
  /// The surface of a bundle with other parameters of its shape.
  void reshape(Eigen::VectorXd const& shapeParameters) {
    coefficients_ = known_ + byShape_ * shapeParameters;
  }

private:
  Eigen::VectorXd terms(double x, double y) const;

  int degree_ = -1; ///< of the polynomial; below 0: flat
  cv::Point2d middle_;
  double size_ = 1;
  Eigen::VectorXd known_; ///< the coefficients of the shape as it was found
  Eigen::MatrixXd byShape_;
  Eigen::VectorXd coefficients_;
};

/// A laser's plane: the points x with normal x = distance.
struct LaserPlane {
  cv::Vec3d normal = {0, 0, 1};
  double distance = 0;
  /// Noise of its line, across it in the image, pixels.
  double sigma = 1;

  /// Two directions at right angles to the normal and to each other.
  cv::Matx<double, 3, 2> tangents() const;
  /// Turned by small angles towards the tangents, and shifted.
  LaserPlane moved(double const* step) const;
};

/// All unknowns and observations of an adjustment of a camera and lasers.
struct LaserBundle {
  /// The dots, with the shape that was found as known, and steps from it; one device.
  Bundle dots;
  SurfaceHeight surface;
  /// By view and laser.
  std::vector<std::vector<std::vector<cv::Point2d>>> lines;
  std::vector<LaserPlane> planes;

  /// The parameters of the camera, and after them those of the shape.
  int cameraCount() const { return dots.deviceCount(); }
  int dotsCount() const { return dots.commonCount(); }
  int commonCount() const { return dotsCount() + 3 * static_cast<int>(planes.size()); }
};

/// The rays (x, y, 1) of lines' pixels through a bundle's camera, as its lists.
using LineRays = std::vector<std::vector<std::vector<cv::Point2d>>>;
LineRays raysOf(LaserBundle const& bundle);

/// Where a ray meets the target of a view, camera frame; nothing where it does not.
std::optional<cv::Vec3d> onTarget(LaserBundle const& bundle, BundleView const& view, cv::Point2d const& ray);

/// Sums of the squares that the lines' points lie off their planes, pixels, unweighted, and their numbers, by
/// plane; and of all weighted squares.
struct LaserSquares {
  std::vector<double> lines;
  std::vector<int> counts;
  double total = 0;
};
LaserSquares squaresOf(LaserBundle const& bundle);

/// The normal equations of dots and lines; after the parameters of the camera and the shape three of each
/// plane.
NormalEquations normalEquationsOf(LaserBundle const& bundle);

} // namespace vorn::mv
