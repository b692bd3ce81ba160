// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace vorn::mv {

/// What a byte of `PointCloud::auxMask` says of its point; seen as a picture, the brighter the better.
enum class PointKind : std::uint8_t {
  Absent = 0,              ///< deleted, or not finite
  RegistrationBorder = 32, ///< too near to a border or a step to be matched with another view
  Border = 64,             ///< next to an absent point or to the end of the grid
  Step = 96,               ///< next to a step in depth
  WeakFit = 128,           ///< without a normal, or far rougher than the rest of the cloud
  Inner = 255              ///< on a surface, with neighbours all around
};

} // namespace vorn::mv
