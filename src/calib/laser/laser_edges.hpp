// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include "calib/laser/laser_profile.hpp"

namespace vorn::mv {

/// A stripe and the column or row that cuts it.
struct LaserSample {
  int line;
  ProfilePeak peak;
};

/// Samples of neighbouring columns (or rows) that follow each other, as indices: pieces of laser line. A gap
/// of one column ends a piece.
/// @param samples in the order of their lines and, in each, of their places
std::vector<std::vector<std::size_t>> chainsOf(std::vector<LaserSample> const& samples);

/// Finds the stripes that an edge of the surface's brightness, or of the surface itself, has moved.
///
/// A stripe of width w on a surface of brightness a lies off by about w^2 * d(ln a) / dy. Two things show it:
/// - the profile is no longer symmetric. The odd parts are compared with their noise, stripe by stripe and as
///   means over neighbours, which show what is too small to see in one;
/// - the height changes along the line. Brightness that changes so much along it changes as much across it.
///
/// The noise is that of the line itself, from what differs between neighbours, so nothing needs to be known
/// of the camera. An asymmetry that all stripes have is the laser's own.
/// @param samples in the order of their lines
/// @return a flag for each
std::vector<bool> movedByEdges(std::vector<LaserSample> const& samples);

} // namespace vorn::mv
