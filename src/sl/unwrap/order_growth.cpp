// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/unwrap/order_growth.hpp"

#include <algorithm>
#include <vector>

#include "core/simd.hpp"
#include "sl/unwrap/band_growth.hpp"

namespace vorn::mv::sl {

namespace {

/// Lets those open pixels of a row wait that lie beside a known one. `above` and `below` are read from 0 to
/// `n`, `state` from -1 to `n` + 1.
/// @return whether any waits
VORN_TARGET_CLONES
bool markWaiting(uchar const* above, uchar* state, uchar const* below, int n) {
  uchar any = 0;
  for (int x = 0; x < n; ++x) {
    any = static_cast<uchar>(any | (state[x] & pixel_state::openBit));
  }
  if (any == 0) {
    return false;
  }
  constexpr uchar waitingBit = pixel_state::waiting & ~pixel_state::open;
  uchar waits = 0;
  // A neighbour that waits already is not known before or after, so the order of the pixels does not matter.
  VORN_INDEPENDENT_ITERATIONS
  for (int x = 0; x < n; ++x) {
    auto const around =
        static_cast<uchar>((above[x] | state[x - 1] | state[x + 1] | below[x]) & pixel_state::knownBit);
    bool const isOpen = (state[x] & (pixel_state::knownBit | pixel_state::openBit)) == pixel_state::openBit;
    uchar const waiting = isOpen & (around != 0) ? waitingBit : 0;
    state[x] = static_cast<uchar>(state[x] | waiting);
    waits = static_cast<uchar>(waits | waiting);
  }
  return waits != 0;
}

/// Rows of a band. Half of them, where those of the two passes overlap, hold nearly all regions.
constexpr int bandRows = 128;
/// Bands between two askings, a few milliseconds of a 12-megapixel image each.
constexpr int bandsBetweenAskings = 4;

/// Marks the waiting pixels of rows [firstRow, endRow); reads one more on either side.
void markRows(cv::Mat_<uchar>& state, int firstRow, int endRow, std::vector<uchar>& hasWaiting) {
  constexpr int pad = PaddedMap<uchar>::pad;
  for (int y = firstRow; y < endRow; ++y) {
    bool const waits =
        markWaiting(state[y - 1] + pad, state[y] + pad, state[y + 1] + pad, state.cols - 2 * pad);
    hasWaiting[static_cast<std::size_t>(y)] = waits ? 1 : 0;
  }
}

/// Which rows have waiting pixels.
std::vector<uchar> markAllRows(cv::Mat_<uchar>& state, Progress const& progress) {
  constexpr int pad = PaddedMap<uchar>::pad;
  int const end = state.rows - pad;
  std::vector<uchar> hasWaiting(static_cast<std::size_t>(state.rows));
  int const bands = (end - pad + bandRows - 1) / bandRows;
  auto const firstOf = [&](int band) { return pad + band * bandRows; };
  // The last row of each band comes later, as the band after it reads that one.
  parallelRows(bands, bandsBetweenAskings, progress, "unwrapping", [&](int first, int last) {
    for (int band = first; band < last; ++band) {
      markRows(state, firstOf(band) + 1, std::min(firstOf(band + 1) - 1, end), hasWaiting);
    }
  });
  for (int band = 0; band < bands; ++band) {
    markRows(state, firstOf(band), firstOf(band) + 1, hasWaiting);
    markRows(state, std::min(firstOf(band + 1) - 1, end - 1), std::min(firstOf(band + 1), end), hasWaiting);
  }
  return hasWaiting;
}

} // namespace

void growOrders(OrderMaps const& maps, Progress const& progress) {
  constexpr int pad = PaddedMap<uchar>::pad;
  std::vector<uchar> const hasWaiting = markAllRows(maps.maps.state.whole, progress.part(0.0, 0.1));
  int const rows = maps.maps.size().height;
  auto const growBands = [&](int offset, GrowthPass const& pass, Progress const& part) {
    int const bands = (rows + offset + bandRows - 1) / bandRows;
    parallelRows(bands, [&](int first, int last) {
      BandGrowth growth(maps, part);
      for (int band = first; band < last; ++band) {
        growth.growInside(pad + std::max(0, band * bandRows - offset),
                          pad + std::min(rows, (band + 1) * bandRows - offset), pass, hasWaiting);
      }
    });
  };
  using namespace growth_step;
  growBands(0, {none, claimed, postponed}, progress.part(0.1, 0.6));
  growBands(bandRows / 2, {postponed, claimedAgain, left}, progress.part(0.6, 0.7));
  BandGrowth(maps, progress.part(0.7, 1.0)).growLeft(hasWaiting);
}

} // namespace vorn::mv::sl
