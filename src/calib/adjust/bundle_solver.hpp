// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <vector>

#include <Eigen/Core>

#include "calib/adjust/normal_equations.hpp"
#include "core/progress.hpp"

namespace vorn::mv {

/// Moves a bundle's unknowns to where the weighted squares are least: Levenberg and Marquardt's method with
/// the poses eliminated. The transfers are taken as constant within a round and made anew for the next.
/// @throws Exception when the unknowns stay undetermined or no minimum is found within `maxIterations`
void solveBundle(Bundle& bundle, int maxIterations, Progress const& progress = {});

/// The normal equations with the poses eliminated.
struct ReducedEquations {
  Eigen::MatrixXd common;
  Eigen::VectorXd slope;
};
/// @return nothing when a pose is not determined
std::optional<ReducedEquations> reduced(NormalEquations const& normal);

/// The covariance of the common parameters, weights taken as they are.
/// @throws Exception when they are not determined
Eigen::MatrixXd commonCovarianceOf(NormalEquations const& normal);

/// Of all residuals, how many the unknowns take up through the residuals of one device: the trace of the
/// covariance times that device's normal equations.
double parametersTakenBy(NormalEquations const& whole, Eigen::MatrixXd const& commonCovariance,
                         NormalEquations const& ofDevice);

/// By how much the squares of a solved bundle would fall with another shape, to first order.
double gainOf(Bundle const& solved, ShapeBasis::Level level);
/// The same with more unknowns of any kind, whose values leave the model as it is.
double gainOf(Bundle const& solved, Bundle const& extended);

/// What a view of a solved bundle would have for a transform of its own, to first order.
struct OwnTransform {
  cv::Vec3d turn;  ///< beyond the common transform
  cv::Vec3d shift; ///< likewise
  double gain = 0; ///< of the squares
};
/// Of every view, 0 for one that does not show both devices enough dots; none where the unknowns are not
/// determined.
std::vector<OwnTransform> ownTransformsOf(Bundle const& solved);

} // namespace vorn::mv
