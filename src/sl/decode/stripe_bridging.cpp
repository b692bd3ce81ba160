// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/stripe_bridging.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>

#include <opencv2/core/hal/intrin.hpp>

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

/// The pixels of a short gap and the known one at its end, which are looked at together.
constexpr int shortLength = 4;

/// Four states as one number, however the processor orders bytes, and one that has the same byte four times.
using FourStates = std::uint32_t;
constexpr FourStates fourOf(unsigned byte) {
  return byte * 0x01010101U;
}

FourStates loadStates(uchar const* state) {
  FourStates states = 0;
  std::memcpy(&states, state, sizeof(states));
  return states;
}

/// All bits of those of four states whose bit is set.
FourStates statesOf(unsigned bits) {
  constexpr uchar all = 255;
  static constexpr uchar states[1 << shortLength][shortLength] = {
      {0, 0, 0, 0},     {all, 0, 0, 0},     {0, all, 0, 0},     {all, all, 0, 0},
      {0, 0, all, 0},   {all, 0, all, 0},   {0, all, all, 0},   {all, all, all, 0},
      {0, 0, 0, all},   {all, 0, 0, all},   {0, all, 0, all},   {all, all, 0, all},
      {0, 0, all, all}, {all, 0, all, all}, {0, all, all, all}, {all, all, all, all}};
  return loadStates(states[bits]);
}

/// A bit for each of the first `n` states, up to 64: whether it is known.
std::uint64_t knownBitsOf(uchar const* state, int n) {
  constexpr std::uint64_t knownBits = 0x8080808080808080U;
  // Brings the lowest bits of eight bytes together in the highest byte.
  constexpr std::uint64_t gather = 0x0102040810204080U;
  std::uint64_t known = 0;
  int x = 0;
  for (; x + 8 <= n; x += 8) {
    known |= ((eightBytes(state + x) & knownBits) >> 7U) * gather >> 56U << static_cast<unsigned>(x);
  }
  for (; x < n; ++x) {
    known |= static_cast<std::uint64_t>(pixel_state::isKnown(state[x]) ? 1 : 0) << static_cast<unsigned>(x);
  }
  return known;
}

/// Lists the pixels of a row at which known ones begin and end, by turns. Gaps begin and end as if at random,
/// so they are found without branching at each pixel.
/// @return the end of the list
int* findBorders(uchar const* state, int n, int* borders) {
  constexpr int wordBits = 64;
  std::uint64_t before = 0; // nothing is known before the row
  for (int x = 0; x < n; x += wordBits) {
    int const count = std::min(wordBits, n - x);
    std::uint64_t const known = knownBitsOf(state + x, count);
    std::uint64_t changes = known ^ (known << 1U | before);
    changes &= ~std::uint64_t{0} >> static_cast<unsigned>(wordBits - count);
    before = known >> static_cast<unsigned>(count - 1);
    for (; changes != 0; changes &= changes - 1) {
      *borders++ = x + lowestBit(changes);
    }
  }
  return borders;
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
      stripes_(stripes), reach_(std::min(reach, longestReach)),
      borders_(static_cast<std::size_t>(size_.width) + 1) {}

void StripeBridging::alongRow(int y, int const* reading) {
  std::size_t const row = static_cast<std::size_t>(y) * stride_;
  int const n = size_.width;
  int const* const last = findBorders(state_ + row, n, borders_.data());
  constexpr int pad = PaddedMap<uchar>::pad;
  for (int const* border = borders_.data() + 1; last - border >= 2; border += 2) {
    int const from = border[0] - 1;
    int const length = border[1] - from;
    std::size_t const index = row + static_cast<std::size_t>(from);
    int const* const ofGap = isChecked_ ? reading + from : nullptr;
    if (length <= shortLength && from + shortLength < n + pad) {
      bridgeShort(index, length, ofGap);
    } else {
      bridge(index, 1, length, ofGap);
    }
  }
}

void StripeBridging::alongColumns(int block, CalmChunks const* calm) {
  int const firstColumn = block * columnBlock;
  int const n = std::min(columnBlock, size_.width - firstColumn);
  uchar gap[columnBlock];
  uchar ended[columnBlock];
  std::fill_n(gap, n, noGap);
  static_assert(columnBlock % CalmChunks::length == 0, "so that a block is whole pieces");
  int const firstChunk = firstColumn / CalmChunks::length;
  int const endChunk = (firstColumn + n + CalmChunks::length - 1) / CalmChunks::length;
  bool isKnownAbove = false;
  for (int y = 0; y < size_.height; ++y) {
    std::size_t const row = static_cast<std::size_t>(y) * stride_ + static_cast<std::size_t>(firstColumn);
    for (int x = 0; x < n; x += 64) {
      prefetch(state_ + row + prefetchedRows * stride_ + x);
    }
    bool const isKnown = calm != nullptr && calm->isAlong(y, firstChunk, endChunk);
    // No gap ends or begins between two rows that are known.
    if (isKnown && isKnownAbove) {
      continue;
    }
    isKnownAbove = isKnown;
    if (!followGaps(state_ + row, n, gap, ended)) {
      continue;
    }
    for (int x = 0; x < n; ++x) {
      if (ended[x] != 0) {
        int const length = ended[x] + 1;
        std::size_t const from =
            row + static_cast<std::size_t>(x) - static_cast<std::size_t>(length) * stride_;
        bridge(from, stride_, length, isChecked_ ? reading_ + from : nullptr);
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
void StripeBridging::bridge(std::size_t from, std::size_t step, int length, int const* reading) {
  std::size_t const to = from + static_cast<std::size_t>(length) * step;
  if (length > reach_ || (length > 2 && isWithinStripe(from, to))) {
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
  settle(from, step, orders, length - 1, reading);
}

void StripeBridging::settle(std::size_t from, std::size_t step, int const* orders, int count,
                            int const* reading) {
  for (int i = 0; i < count; ++i) {
    std::size_t const offset = static_cast<std::size_t>(i + 1) * step;
    std::size_t const index = from + offset;
    float const absolute = wrapped_[index] + twoPiFloat * static_cast<float>(orders[i]);
    bool const fits = !isChecked_ || codes_.fits(static_cast<CodeReading>(reading[offset]), absolute);
    order_[index] = static_cast<short>(fits ? orders[i] : order_[index]);
    state_[index] = fits ? pixel_state::bridged : pixel_state::noCode;
  }
}

/// As `bridge` along a row, with the pixels of the gap and the one at its end side by side: few gaps are
/// longer, and their lengths are as good as random to a loop. Reads and writes back what follows them.
void StripeBridging::bridgeShort(std::size_t from, int length, int const* reading) {
  auto const end = static_cast<std::size_t>(length);
  if (length > reach_ || (length > 2 && isWithinStripe(from, from + end))) {
    return;
  }
  std::size_t const first = from + 1;
  cv::v_float32x4 const wrapped = cv::v_load(wrapped_ + first);
  cv::v_float32x4 const rise = wrapped - cv::v_load(wrapped_ + from);
  cv::v_float32x4 const apart = cv::v_abs(rise);
  cv::v_float32x4 const distance = cv::v_min(apart, cv::v_setall_f32(twoPiFloat) - apart);
  // Comparisons give -1 where they hold.
  cv::v_int32x4 orders = cv::v_reinterpret_as_s32(rise > cv::v_setall_f32(piFloat)) -
                         cv::v_reinterpret_as_s32(rise < cv::v_setall_f32(-piFloat));
  orders = orders + cv::v_rotate_left<1>(orders);
  orders = orders + cv::v_rotate_left<2>(orders) + cv::v_setall_s32(order_[from]);
  cv::v_int32x4 const ownOrders = cv::v_load_expand(order_ + first);

  int const lost = cv::v_signmask(distance > cv::v_setall_f32(stepLimit)) | cv::v_signmask(orders);
  int const arrived = cv::v_signmask(orders == ownOrders);
  unsigned const steps = (1U << end) - 1U;
  FourStates const states = loadStates(state_ + first);
  FourStates const gap = statesOf(steps >> 1U);
  bool const isOpen = (~states & gap & fourOf(pixel_state::openBit)) == 0;
  bool const arrives = (static_cast<unsigned>(arrived) >> (end - 1) & 1U) != 0;
  if (!isOpen || !arrives || order_[from] < 0 || (static_cast<unsigned>(lost) & steps) != 0) {
    return;
  }

  cv::v_int32x4 fits = cv::v_int32x4(0, 1, 2, 3) < cv::v_setall_s32(length - 1);
  if (isChecked_) {
    cv::v_float32x4 const absolute = wrapped + cv::v_setall_f32(twoPiFloat) * cv::v_cvt_f32(orders);
    fits = fits & codes_.fits(cv::v_load(reading + 1), absolute);
  }
  cv::v_pack_store(order_ + first, cv::v_select(fits, orders, ownOrders));
  FourStates const fitting = statesOf(static_cast<unsigned>(cv::v_signmask(fits)));
  FourStates const settled =
      (fitting & fourOf(pixel_state::bridged)) | (~fitting & fourOf(pixel_state::noCode));
  FourStates const all = (states & ~gap) | (settled & gap);
  std::memcpy(state_ + first, &all, sizeof(all));
}

void bridgeColumns(ScanDecodingSettings const& settings, StripeSpacing const& stripes, CalmChunks const* calm,
                   ScanMaps& maps, Progress const& progress) {
  int const blocks = (maps.size().width + StripeBridging::columnBlock - 1) / StripeBridging::columnBlock;
  parallelRows(blocks, 1, progress, "decoding", [&](int first, int end) {
    StripeBridging bridging(settings, stripes, stripeBorderReach, maps);
    for (int block = first; block < end; ++block) {
      bridging.alongColumns(block, calm);
    }
  });
}

} // namespace vorn::mv::sl
