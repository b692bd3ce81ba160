// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/simd.hpp"

namespace vorn {

/// The whole number nearest to one below 2^22 in size, in loops that are to be vectorised: adding and taking
/// off a number of 24 bits rounds.
VORN_ALWAYS_INLINE float nearestWhole(float value) {
  constexpr float rounder = 12582912.0F;
  return (value + rounder) - rounder;
}

/// Likewise of one below 2^51.
VORN_ALWAYS_INLINE double nearestWhole(double value) {
  constexpr double rounder = 6755399441055744.0;
  return (value + rounder) - rounder;
}

} // namespace vorn
