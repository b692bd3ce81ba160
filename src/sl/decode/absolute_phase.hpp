// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/hal/interface.h>

#include "core/pi.hpp"

namespace vorn::mv::sl {

/// Change of the absolute phase to the next pixel from which on the two lie on different surfaces.
constexpr float surfaceJump = piFloat;

/// The absolute phase of a pixel whose order is known.
inline float absolutePhase(float wrapped, short order) {
  return wrapped + twoPiFloat * static_cast<float>(order);
}

/// The absolute phases of some pixels; `unknownPhase` where the state tells of no order.
void absoluteRow(float const* wrapped, short const* order, uchar const* state, int n, float* out);

} // namespace vorn::mv::sl
