// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>

#include <vorn/mv/measure/plot.hpp>

namespace vorn::tools {

/// Lets the upright axis go from nought to somewhat above the largest number.
inline void fitFromNought(mv::Plot& plot) {
  double largest = 0.0;
  for (mv::PlotSeries const& series : plot.series) {
    for (double const y : series.y) {
      largest = std::max(largest, y);
    }
  }
  constexpr double air = 0.1; // whole dots on top
  plot.y.low = 0.0;
  plot.y.high = largest > 0.0 ? (1.0 + air) * largest : 1.0;
}

} // namespace vorn::tools
