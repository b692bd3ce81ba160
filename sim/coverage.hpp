// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>

namespace vorn::sim {

/// The share of a parallelogram of sides `a`, `b` (their extents across a straight edge) on the negative side
/// of that edge at signed distance d from its centre: the distribution function of a trapezoid.
inline double coverage(double d, double a, double b) {
  double const wide = std::max(std::abs(a), std::abs(b));
  double const narrow = std::min(std::abs(a), std::abs(b));
  double const outer = 0.5 * (wide + narrow);
  double const inner = 0.5 * (wide - narrow);
  double const x = std::abs(d);
  double share = 0.0;
  if (x < inner) {
    share = 0.5 - x / wide;
  } else if (x < outer) {
    share = (outer - x) * (outer - x) / (2.0 * wide * narrow);
  }
  return d < 0.0 ? 1.0 - share : share;
}

} // namespace vorn::sim
