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
  std::vector<int> order;   ///< of the finest fringe
  std::vector<int> isClear; ///< 1: no other order comes near, and the fringes agree about this one
};

/// The orders of the finest fringe that agree best with the other ones, among all that the projector shows
/// and the one before them. The cost of an order are the squared deviations of the other fringes, in their
/// variances. Each of them leaves some orders only: what it costs alone must not be too much.
/// @param isWanted of each pixel 1 or 0
void searchOrders(FringeSamples const& fringes, int resolution, std::vector<int> const& isWanted,
                  FoundOrders& found);

} // namespace vorn::mv::sl
