// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include <opencv2/core/matx.hpp>

#include "measure/shape.hpp"

namespace vorn::mv {

/// The box that points fill, axis by axis; a few stray points at either end do not widen it.
struct FilledBox {
  cv::Vec3d low;
  cv::Vec3d size;
};

/// @param thinnest what an axis is widened to
FilledBox boxOf(Points const& points, Indices const& used, double thinnest);

/// The share of a box's volume that is no farther than the bound from the plane or sphere.
double shareNear(PlaneShape const& plane, FilledBox const& box, double bound);
double shareNear(SphereShape const& sphere, FilledBox const& box, double bound);

/// Whether more points support a shape than the best of all shapes through `unknowns` of them gets when they
/// are scattered at random: the expected number of such shapes with that many is less than one (Moisan and
/// Stival 2004), by Chernoff's bound of the binomial distribution.
/// @param supporting those near the shape, of all
/// @param share the chance that a scattered point is near it
bool isBeyondChance(std::size_t supporting, std::size_t all, std::size_t unknowns, double share);

} // namespace vorn::mv
