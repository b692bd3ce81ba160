// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/unwrap/order_growth.hpp"

#include <algorithm>
#include <vector>

#include "core/simd.hpp"
#include "sl/unwrap/band_growth.hpp"

namespace vorn::mv::sl {

namespace {

constexpr uchar waitingBit = pixel_state::waiting & ~pixel_state::open;

/// The bit of each pixel of a row that waits: it is open, and a pixel beside it is known. `above` and `below`
/// are read from 0 to `n`, `state` from -1 to `n` + 1.
/// @return whether any waits
VORN_TARGET_CLONES
bool findWaiting(uchar const* above, uchar const* state, uchar const* below, int n,
                 uchar* __restrict waiting) {
  uchar any = 0;
  for (int x = 0; x < n; ++x) {
    auto const around = static_cast<uchar>(above[x] | state[x - 1] | state[x + 1] | below[x]);
    // The known bit of the one and the open bit of the other, in the place of the waiting bit.
    auto const isOpen = static_cast<uchar>((state[x] >> 6U) & ~(state[x] >> 7U));
    waiting[x] = static_cast<uchar>(isOpen & (around >> 7U));
    any = static_cast<uchar>(any | waiting[x]);
  }
  return any != 0;
}

VORN_TARGET_CLONES
void addBits(uchar const* bits, int n, uchar* __restrict state) {
  for (int x = 0; x < n; ++x) {
    state[x] = static_cast<uchar>(state[x] | bits[x]);
  }
}

/// Lets those open pixels of a row wait that lie beside a known one.
/// @param room takes `n` values
/// @return whether any waits
bool markWaiting(uchar const* above, uchar* state, uchar const* below, int n, uchar* room) {
  static_assert(waitingBit == 1 && pixel_state::openBit == 1U << 6U && pixel_state::knownBit == 1U << 7U,
                "as bits are shifted in findWaiting");
  bool const waits = findWaiting(above, state, below, n, room);
  if (waits) {
    addBits(room, n, state);
  }
  return waits;
}

/// Rows of a band. Half of them, where those of the two passes overlap, hold nearly all regions.
constexpr int bandRows = 128;
/// Bands between two askings, a few milliseconds of a 12-megapixel image each.
constexpr int bandsBetweenAskings = 4;

/// Marks the waiting pixels of rows [firstRow, endRow); reads one more on either side.
void markRows(cv::Mat_<uchar>& state, int firstRow, int endRow, std::vector<uchar>& hasWaiting) {
  constexpr int pad = PaddedMap<uchar>::pad;
  std::vector<uchar> room(static_cast<std::size_t>(state.cols));
  for (int y = firstRow; y < endRow; ++y) {
    bool const waits = markWaiting(state[y - 1] + pad, state[y] + pad, state[y + 1] + pad,
                                   state.cols - 2 * pad, room.data());
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
