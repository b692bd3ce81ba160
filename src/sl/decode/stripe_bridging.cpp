// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/stripe_bridging.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "core/bits.hpp"
#include "core/simd.hpp"

namespace vorn::mv::sl {

namespace {

/// Largest change of phase from one pixel to the next that is still followed.
constexpr float stepLimit = 0.4F * twoPiFloat;
/// Rows that are asked for before their turn when columns are walked down.
constexpr std::size_t prefetchedRows = 4;
/// The length of a gap that is not to be bridged.
constexpr uchar noGap = 255;

enum class Known { No, Yes };

/// The first pixel from `x` on whose order is known, or is not. Gaps begin and end as if at random: looking
/// at eight states at a time is cheaper than branching at each.
int next(Known wanted, uchar const* state, int x, int n) {
  constexpr std::uint64_t knownBits = 0x8080808080808080U;
  std::uint64_t const others = wanted == Known::Yes ? 0 : knownBits;
  for (; x + 8 <= n; x += 8) {
    std::uint64_t const found = (eightBytes(state + x) & knownBits) ^ others;
    if (found != 0) {
      return x + lowestBit(found) / 8;
    }
  }
  while (x < n && pixel_state::isKnown(state[x]) != (wanted == Known::Yes)) {
    ++x;
  }
  return x;
}

/// Lengthens the gaps of open pixels above a row, and says whether any of them ends in it at a known pixel.
/// @param ended takes the lengths of those, 0 elsewhere
VORN_TARGET_CLONES
bool followGaps(uchar const* state, int n, uchar* __restrict gap, uchar* __restrict ended) {
  uchar any = 0;
  for (int x = 0; x < n; ++x) {
    uchar const before = gap[x];
    bool const isKnown = state[x] >= pixel_state::knownBit;
    bool const isLost = (state[x] < pixel_state::openBit) | (before >= noGap - 1);
    auto const longer = static_cast<uchar>(before + 1);
    uchar const end = isKnown & (before != noGap) ? before : 0;
    uchar const still = isLost ? noGap : longer;
    gap[x] = isKnown ? 0 : still;
    ended[x] = end;
    any = static_cast<uchar>(any | end);
  }
  return any != 0;
}

} // namespace

StripeBridging::StripeBridging(ScanDecodingSettings const& settings, StripeSpacing const& stripes, int reach,
                               ScanMaps& maps)
    : codes_(settings.period), isChecked_(settings.rules.codeCheck), size_(maps.size()),
      stride_(static_cast<std::size_t>(maps.state.whole.cols)), wrapped_(maps.wrapped.inner[0]),
      reading_(maps.reading.inner.ptr<int>()), order_(maps.order.inner[0]), state_(maps.state.inner[0]),
      stripes_(stripes), reach_(std::min(reach, longestReach)) {}

void StripeBridging::alongRow(int y) {
  std::size_t const row = static_cast<std::size_t>(y) * stride_;
  uchar const* const states = state_ + row;
  int const n = size_.width;
  int x = next(Known::Yes, states, 0, n);
  while (x < n) {
    int const begin = next(Known::No, states, x, n);
    int const end = next(Known::Yes, states, begin, n);
    if (end < n) {
      bridge(row + static_cast<std::size_t>(begin) - 1, 1, end - begin + 1);
    }
    x = end;
  }
}

void StripeBridging::alongColumns(int block) {
  int const firstColumn = block * columnBlock;
  int const n = std::min(columnBlock, size_.width - firstColumn);
  uchar gap[columnBlock];
  uchar ended[columnBlock];
  std::fill_n(gap, n, noGap);
  for (int y = 0; y < size_.height; ++y) {
    std::size_t const row = static_cast<std::size_t>(y) * stride_ + static_cast<std::size_t>(firstColumn);
    for (int x = 0; x < n; x += 64) {
      prefetch(state_ + row + prefetchedRows * stride_ + x);
    }
    if (!followGaps(state_ + row, n, gap, ended)) {
      continue;
    }
    for (int x = 0; x < n; ++x) {
      if (ended[x] != 0) {
        int const length = ended[x] + 1;
        bridge(row + static_cast<std::size_t>(x) - static_cast<std::size_t>(length) * stride_, stride_,
               length);
      }
    }
  }
}

/// The stripe that the code of a known pixel's place belongs to.
int StripeBridging::stripeAt(std::size_t index) const {
  constexpr float fringesPerRadian = 1.0F / twoPiFloat;
  float const fringes = static_cast<float>(order_[index]) + fringesPerRadian * wrapped_[index];
  return stripes_.at(fringes);
}

/// What is bridged is a border, so the ends are in different stripes; along a border, many pixels one after
/// the other are uncertain, and following them would only tell that both ends are on one surface.
void StripeBridging::bridge(std::size_t from, std::size_t step, int length) {
  std::size_t const to = from + static_cast<std::size_t>(length) * step;
  if (length > reach_ || (length > 2 && stripeAt(from) == stripeAt(to))) {
    return;
  }
  int orders[longestReach];
  int order = order_[from];
  int lowest = order;
  float before = wrapped_[from];
  float farthest = 0;
  uchar open = pixel_state::openBit;
  for (int i = 0; i < length; ++i) {
    std::size_t const here = from + static_cast<std::size_t>(i + 1) * step;
    float const wrapped = wrapped_[here];
    float const rise = wrapped - before;
    float const apart = std::fabs(rise);
    order += (rise < -piFloat ? 1 : 0) - (rise > piFloat ? 1 : 0);
    lowest = std::min(lowest, order);
    farthest = std::max(farthest, std::min(apart, twoPiFloat - apart));
    open = static_cast<uchar>(open & (state_[here] | (here == to ? pixel_state::openBit : 0)));
    orders[i] = order;
    before = wrapped;
  }
  if (open == 0 || lowest < 0 || farthest > stepLimit || order != order_[to]) {
    return;
  }
  settle(from, step, orders, length - 1);
}

void StripeBridging::settle(std::size_t from, std::size_t step, int const* orders, int count) {
  for (int i = 0; i < count; ++i) {
    std::size_t const index = from + static_cast<std::size_t>(i + 1) * step;
    float const absolute = wrapped_[index] + twoPiFloat * static_cast<float>(orders[i]);
    bool const fits = !isChecked_ || codes_.fits(static_cast<CodeReading>(reading_[index]), absolute);
    order_[index] = static_cast<short>(fits ? orders[i] : order_[index]);
    state_[index] = fits ? pixel_state::bridged : pixel_state::noCode;
  }
}

void bridgeColumns(ScanDecodingSettings const& settings, StripeSpacing const& stripes, ScanMaps& maps,
                   Progress const& progress) {
  int const blocks = (maps.size().width + StripeBridging::columnBlock - 1) / StripeBridging::columnBlock;
  parallelRows(blocks, 1, progress, "decoding", [&](int first, int end) {
    StripeBridging bridging(settings, stripes, stripeBorderReach, maps);
    for (int block = first; block < end; ++block) {
      bridging.alongColumns(block);
    }
  });
}

} // namespace vorn::mv::sl
