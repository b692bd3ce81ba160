// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include <Eigen/Core>

#include "calib/adjust/bundle.hpp"

namespace vorn::mv {

using PoseMatrix = Eigen::Matrix<double, 6, 6>;
using PoseVector = Eigen::Matrix<double, 6, 1>;

/// Weighted normal equations of a bundle: common parameters, poses, and what couples the two.
struct NormalEquations {
  Eigen::MatrixXd common;             ///< n x n
  Eigen::VectorXd commonSlope;        ///< n
  std::vector<Eigen::MatrixXd> mixed; ///< n x 6 a view
  std::vector<PoseMatrix> pose;
  std::vector<PoseVector> poseSlope;
};

/// The derivative of a dot's place in device 1 by its place in device 0, on the target; a list a view.
using Transfers = std::vector<std::vector<cv::Matx22d>>;

/// Sums of weighted squares and numbers of residuals, of device 0 and of device 1, and of what holds the
/// shape.
struct Squares {
  double sum[2] = {0, 0};
  int count[2] = {0, 0};
  double prior = 0;

  double total() const { return sum[0] + sum[1] + prior; }
  int totalCount() const { return count[0] + count[1]; }
};

/// A dot's residuals, in pixels.
struct DotResidual {
  cv::Vec2d in0;
  cv::Vec2d in1; ///< less the part that `in0` explains, when the points of device 1 are read
};

/// The transfers at the bundle's present parameters; empty lists unless it `isRead`.
Transfers transfersOf(Bundle const& bundle);

/// The residuals of all dots, view by view; those of a device that did not see a dot are 0.
std::vector<std::vector<DotResidual>> residualsOf(Bundle const& bundle, Transfers const& transfers);

Squares squaresOf(Bundle const& bundle, Transfers const& transfers);

/// The weighted derivatives and residuals of a view's dots in one device: by the common parameters, but for a
/// shape by dot, then by the pose.
struct ViewRows {
  Eigen::MatrixXd slope;
  Eigen::VectorXd residual;
  std::vector<int> dots; ///< the target's dot of each two rows
};

/// @param device that the rows are of, -1: those of both
ViewRows viewRowsOf(Bundle const& bundle, Transfers const& transfers, std::size_t view, int device);

/// @param device only the residuals of this device count, -1: those of both, and what holds the shape
NormalEquations normalEquationsOf(Bundle const& bundle, Transfers const& transfers, int device = -1);

} // namespace vorn::mv
