// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>

#include "core/nearest_whole.hpp"
#include "core/simd.hpp"

namespace vorn::mv::sl {

/// Stripes of one width along an axis of the projector, as it shows them: pixels are lit as a whole, so
/// stripes that are not a whole number of pixels wide are now the one and now the other number that is next.
struct StripeCells {
  double cell;  ///< width, pixels
  double shift; ///< by how many pixels stripe 0 begins before pixel 0

  /// The stripe that a pixel shows.
  int stripeOf(double pixel) const { return static_cast<int>(std::floor((pixel + shift) / cell)); }

  /// Where a stripe begins: half a pixel before the centre of the first pixel that shows it, or a later one
  /// where it is too narrow to be shown.
  VORN_ALWAYS_INLINE double edge(int stripe) const {
    auto const number = static_cast<double>(stripe);
    double const pixel = nearestWhole(number * cell - shift);
    // By the division that decides what is shown: a product may be rounded to the other side of a whole
    // number.
    return pixel + ((pixel + shift) / cell < number ? 0.5 : -0.5);
  }

  VORN_ALWAYS_INLINE double middle(int stripe) const { return 0.5 * (edge(stripe) + edge(stripe + 1)); }
};

} // namespace vorn::mv::sl
