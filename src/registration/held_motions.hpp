// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>
#include <vorn/mv/registration/registration.hpp>

#include "registration/pair_equations.hpp"

namespace vorn::mv {

/// The small motions (rotation times a size, translation) split into those that shapes hold and those that
/// they do not.
struct HeldMotions {
  cv::Mat_<double> held; ///< 6 x k, orthonormal columns
  cv::Mat_<double> free; ///< 6 x (6 - k)
};

/// A motion is free when it moves the surface along itself: when the normals of both clouds agree that it
/// moves the points out of the surface by less than 0.3 % of its length, RMS, or than their noise lets one
/// tell.
HeldMotions heldMotionsOf(PairEquations const& equations);

/// The step that minimises the squares within the held motions: rotation times the size, translation.
cv::Vec6d solveWithin(HeldMotions const& motions, PairEquations const& equations);

/// The sum of the products of orthonormal columns with themselves.
cv::Matx66d projectionOnto(cv::Mat_<double> const& motions);

/// The covariance of the held motions from the scatter of the patches; that of a shift by `size` along the
/// free ones, and along all where its parts are too few to tell.
cv::Matx66d covarianceOf(HeldMotions const& motions, PairEquations const& equations, double size);

/// The free motions as translations and rotations of the target's frame.
std::vector<FreeMotion> freeMotionsOf(HeldMotions const& motions, cv::Vec3d const& pivot, double size);

} // namespace vorn::mv
