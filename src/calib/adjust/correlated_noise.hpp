// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <Eigen/Core>

#include "calib/adjust/bundle.hpp"
#include "calib/adjust/normal_equations.hpp"

namespace vorn::mv {

/// How the errors of dots hang together with those of the dots around: what a lens or a target that the model
/// does not describe leaves, neighbours share. Of errors of variance 1 with poses taken off, the covariance
/// of two dots is share * exp(-(d / reach)^2 / 2), d pitches apart, and of a dot with itself 1 + taken.
struct NoiseCorrelation {
  double share = 0; ///< 0: errors are independent
  double reach = 0; ///< pitches of the target
  double taken = 0; ///< what the fit has taken off the covariance of any two dots of a view
};

/// The correlation that the residuals of a device show; none where it might be chance.
NoiseCorrelation noiseCorrelationOf(Bundle const& bundle,
                                    std::vector<std::vector<DotResidual>> const& residuals, int device);

/// The covariance of the common unknowns where the errors of neighbouring dots hang together: C N' C, N' what
/// such errors scatter the slopes by in place of the normal equations' own (the "sandwich" of Huber, 1967).
/// Of dots by themselves, which such errors become a part of, C as it is.
/// @param whole      the normal equations of all devices, and of what else is adjusted with them: its
///                   parameters behind theirs
/// @param covariance of errors that are independent, C
Eigen::MatrixXd correlatedCovarianceOf(Bundle const& bundle, Transfers const& transfers,
                                       NormalEquations const& whole, Eigen::MatrixXd const& covariance);

} // namespace vorn::mv
