// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include <opencv2/core/hal/interface.h>

namespace vorn::mv::sl {

/// The fringes of an axis at some pixels of a row, the finest one first.
struct FringeSamples {
  std::vector<double> periods;           ///< projector pixels
  std::vector<std::vector<float>> turns; ///< phase in parts of a turn
  std::vector<std::vector<float>> sigma; ///< its standard deviation, likewise
};

/// What a search finds for each pixel.
struct FoundOrders {
  std::vector<short> order; ///< of the finest fringe
  std::vector<float> cost;  ///< squared deviations of the other fringes, in their variances
  std::vector<float> gap;   ///< how much more the next best order costs
};

/// The orders of the finest fringe that agree best with the other ones, among all that the projector shows
/// and the one before them.
void searchOrders(FringeSamples const& fringes, int resolution, int n, FoundOrders& found);

} // namespace vorn::mv::sl
