// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/mv/sl/plan_patterns.hpp>

namespace vorn::mv::sl {

/// Shares of pixels with a coordinate.
struct DrawnShares {
  double alone;          ///< by themselves
  double withNeighbours; ///< with `DecodeSettings::usesNeighbours`
};

/// What decoding of an axis comes to: of images that are drawn, of smooth surfaces that lie all over the
/// projector's image.
DrawnShares drawnShares(PatternSet const& set, PatternAxis axis, PatternWish const& wish);

} // namespace vorn::mv::sl
