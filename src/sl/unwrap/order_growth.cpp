// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/unwrap/order_growth.hpp"

#include <vector>

#include "core/simd.hpp"
#include "sl/unwrap/region_growth.hpp"

namespace vorn::mv::sl {

namespace {

/// Marks the open pixels of a row, and lets those wait that lie beside a known one.
/// @return whether any is open
VORN_TARGET_CLONES
bool markOpen(uchar const* above, uchar* __restrict state, uchar const* below, int n,
              uchar* __restrict open) {
  uchar any = 0;
  for (int x = 0; x < n; ++x) {
    open[x] = state[x] == pixel_state::open ? 1 : 0;
    any = static_cast<uchar>(any | open[x]);
  }
  if (any == 0) {
    return false;
  }
  for (int x = 1; x + 1 < n; ++x) {
    // An open neighbour that waits already is not known, so the order of the pixels does not matter.
    auto const around =
        static_cast<uchar>((above[x] | state[x - 1] | state[x + 1] | below[x]) & pixel_state::knownBit);
    open[x] = static_cast<uchar>(open[x] | (around != 0 ? open[x] << 1 : 0));
  }
  for (int x = 0; x < n; ++x) {
    state[x] = (open[x] & 2) != 0 ? pixel_state::waiting : state[x];
    open[x] = static_cast<uchar>(open[x] & 1);
  }
  return true;
}

} // namespace

void growOrders(OrderMaps const& maps, Progress const& progress) {
  GrowthRegions& regions = maps.maps.growth;
  cv::Mat_<uchar>& state = maps.maps.state.whole;
  regions.clear();
  constexpr int wordBytes = 8;
  std::vector<uchar> open(static_cast<std::size_t>((state.cols + wordBytes - 1) / wordBytes * wordBytes), 0);
  std::vector<uchar> const none(open.size(), 0);
  constexpr int rowsBetweenAskings = 256;
  for (int y = 1; y + 1 < state.rows; ++y) {
    bool const isAny = markOpen(state[y - 1], state[y], state[y + 1], state.cols, open.data());
    regions.addRow(isAny ? open : none, state[y], pixel_state::waiting);
    if (y % rowsBetweenAskings == 0) {
      progress.at("unwrapping", 0.0);
    }
  }
  growRegions(maps, regions, progress);
}

} // namespace vorn::mv::sl
