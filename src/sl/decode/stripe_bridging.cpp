// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/stripe_bridging.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "core/simd.hpp"

namespace vorn::mv::sl {

namespace {

/// Largest change of phase from one pixel to the next that is still followed.
constexpr float stepLimit = 0.4F * twoPiFloat;
/// The length of a gap that is not to be bridged.
constexpr uchar noGap = 255;

/// The first pixel from `x` on whose state is known, or is not.
int nextKnown(uchar const* state, int x, int n) {
  while (x < n && !pixel_state::isKnown(state[x])) {
    ++x;
  }
  return x;
}

int nextUnknown(uchar const* state, int x, int n) {
  constexpr std::uint64_t allKnown = 0x8080808080808080U;
  for (std::uint64_t word = 0; x + 8 <= n; x += 8) {
    std::memcpy(&word, state + x, sizeof(word));
    if ((word & allKnown) != allKnown) {
      break;
    }
  }
  while (x < n && pixel_state::isKnown(state[x])) {
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

StripeBridging::StripeBridging(ScanDecodingSettings const& settings, int reach, ScanMaps& maps)
    : codes_(settings.period), isChecked_(settings.rules.codeCheck), wrapped_(maps.wrapped.inner),
      reading_(maps.reading.inner), order_(maps.order.inner), state_(maps.state.inner),
      border_(codeBorder(settings.period)), reach_(std::min(reach, longestReach)) {}

void StripeBridging::alongRow(int y) {
  uchar const* const states = state_[y];
  int const n = state_.cols;
  int x = nextKnown(states, 0, n);
  while (x < n) {
    int const begin = nextUnknown(states, x, n);
    int const end = nextKnown(states, begin, n);
    bool const isOpen = std::all_of(states + begin, states + end, pixel_state::isOpen);
    if (begin < end && end < n && isOpen) {
      bridge({begin - 1, y}, {1, 0}, end - begin + 1);
    }
    x = end;
  }
}

void StripeBridging::alongColumns(int block) {
  int const firstColumn = block * columnBlock;
  int const n = std::min(columnBlock, state_.cols - firstColumn);
  uchar gap[columnBlock];
  uchar ended[columnBlock];
  std::fill_n(gap, n, noGap);
  for (int y = 0; y < state_.rows; ++y) {
    if (!followGaps(state_[y] + firstColumn, n, gap, ended)) {
      continue;
    }
    for (int x = 0; x < n; ++x) {
      if (ended[x] != 0) {
        bridge({firstColumn + x, y - ended[x] - 1}, {0, 1}, ended[x] + 1);
      }
    }
  }
}

float StripeBridging::absolutePhase(cv::Point p) const {
  return wrapped_(p) + twoPiFloat * static_cast<float>(order_(p));
}

/// The stripe that the code of a known pixel's place belongs to.
int StripeBridging::stripeAt(cv::Point p) const {
  return order_(p) + (wrapped_(p) > border_ ? 1 : 0);
}

/// What is bridged is a border, so the ends are in different stripes; along a border, many pixels one after
/// the other are uncertain, and following them would only tell that both ends are on one surface.
void StripeBridging::bridge(cv::Point from, cv::Point step, int length) {
  cv::Point const to = from + length * step;
  if (length > reach_ || (length > 2 && stripeAt(from) == stripeAt(to))) {
    return;
  }
  int orders[longestReach];
  float before = absolutePhase(from);
  for (int i = 1; i <= length; ++i) {
    float const wrapped = wrapped_(from + i * step);
    // Rounding to the nearest order; the offset of one keeps what is truncated positive.
    orders[i - 1] = static_cast<int>((before - wrapped) * (1.0F / twoPiFloat) + 1.5F) - 1;
    float const here = wrapped + twoPiFloat * static_cast<float>(orders[i - 1]);
    if (std::fabs(here - before) > stepLimit || here < 0.0F) {
      return;
    }
    before = here;
  }
  if (std::fabs(before - absolutePhase(to)) > 0.5F * twoPiFloat) {
    return;
  }
  for (int i = 1; i < length; ++i) {
    settle(from + i * step, orders[i - 1]);
  }
}

void StripeBridging::settle(cv::Point p, int order) {
  float const absolute = wrapped_(p) + twoPiFloat * static_cast<float>(order);
  if (!isChecked_ || codes_.fits(static_cast<CodeReading>(reading_(p)), absolute)) {
    order_(p) = static_cast<short>(order);
    state_(p) = pixel_state::bridged;
  } else {
    state_(p) = pixel_state::noCode;
  }
}

} // namespace vorn::mv::sl
