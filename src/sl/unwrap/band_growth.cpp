// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/unwrap/band_growth.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "core/bits.hpp"
#include "core/pi.hpp"

namespace vorn::mv::sl {

namespace {

/// Pixels of a region that is grown by itself, at most: its part of the maps, some 11 bytes a pixel, is to
/// stay in the second-level cache.
constexpr std::size_t largestRegion = std::size_t{1} << 15;

constexpr uchar waitingBit = pixel_state::waiting & ~pixel_state::open;

bool isOpenAndNotWaiting(uchar state) {
  return (state & (pixel_state::knownBit | pixel_state::waiting)) == pixel_state::open;
}

uchar withStep(uchar state, uchar step) {
  return static_cast<uchar>((state & ~pixel_state::growthBits) | step);
}

} // namespace

BandGrowth::BandGrowth(OrderMaps const& maps, Progress const& progress)
    : size_(maps.maps.state.whole.size()), stride_(static_cast<std::uint32_t>(size_.width)),
      wrapped_(maps.maps.wrapped.whole[0]), reading_(maps.maps.reading.whole.ptr<int>()),
      order_(maps.maps.order.whole[0]), state_(maps.maps.state.whole[0]), codes_(maps.codes),
      isChecked_(maps.isChecked), progress_(progress) {}

/// The states of pixels, as numbers, once they are claimed.
void BandGrowth::prepare(GrowthPass const& pass) {
  for (std::size_t number = 0; number < claimed_.size(); ++number) {
    auto const state = static_cast<uchar>(number);
    uchar const step = state & pixel_state::growthBits;
    bool const isOpen = pixel_state::isOpen(state) && !pixel_state::isKnown(state);
    bool const isTaken = isOpen && (step == growth_step::none || step == pass.from);
    claimed_[number] = isTaken ? withStep(state, pass.claimed) : state;
  }
  constexpr std::size_t neighbours = 4;
  region_.resize(largestRegion + neighbours + 1);
}

/// Calls visit(index) for the waiting pixels of a row of the whole maps, in order; it may change states.
template <class Visit>
void BandGrowth::forEachWaiting(int row, Visit const& visit) const {
  std::uint32_t const begin = static_cast<std::uint32_t>(row) * stride_;
  constexpr std::uint32_t wordBytes = sizeof(std::uint64_t);
  constexpr std::uint64_t openBits = 0x4040404040404040U;
  std::uint32_t x = 0;
  for (; x + wordBytes <= stride_; x += wordBytes) {
    std::uint64_t word = 0;
    std::memcpy(&word, state_ + begin + x, wordBytes);
    // Open, waiting, not known, in the place of the open bit of each.
    bool const isAny = (word & (word << 6U) & ~(word >> 1U) & openBits) != 0;
    for (std::uint32_t k = 0; isAny && k < wordBytes; ++k) {
      if (pixel_state::isWaiting(state_[begin + x + k])) {
        visit(begin + x + k);
      }
    }
  }
  for (; x < stride_; ++x) {
    if (pixel_state::isWaiting(state_[begin + x])) {
      visit(begin + x);
    }
  }
}

void BandGrowth::growInside(int firstRow, int endRow, GrowthPass const& pass,
                            std::vector<uchar> const& hasWaiting) {
  prepare(pass);
  auto const rowAt = [&](int row) { return static_cast<std::uint32_t>(row) * stride_; };
  // Beyond the first and the last row of the image there is nothing open.
  inside_ = firstRow <= PaddedMap<uchar>::pad ? 0 : rowAt(firstRow + 1);
  endInside_ = endRow >= size_.height - PaddedMap<uchar>::pad ? rowAt(size_.height) : rowAt(endRow - 1);
  for (int row = firstRow; row < endRow; ++row) {
    if (hasWaiting[static_cast<std::size_t>(row)] == 0) {
      continue;
    }
    constexpr int rowsBetweenAskings = 16;
    if (row % rowsBetweenAskings == 0) {
      progress_.at("unwrapping", static_cast<double>(row) / size_.height);
    }
    forEachWaiting(row, [&](std::uint32_t index) {
      uchar const step = state_[index] & pixel_state::growthBits;
      if (step != growth_step::none && step != pass.from) {
        return;
      }
      switch (claim(index)) {
      case Extent::Inside:
        grow();
        break;
      case Extent::Across:
        markClaimed(pass.postponed);
        break;
      case Extent::Large:
        markClaimed(growth_step::left);
        break;
      }
    });
  }
}

/// Finds the region of an open pixel, as far as it lies in the band, and marks it. No pixel of another region
/// is ever next to it, so one that is left already tells that the whole region is large.
BandGrowth::Extent BandGrowth::claim(std::uint32_t first) {
  std::uint32_t* const region = region_.data();
  std::size_t size = 0;
  uchar seen = 0;
  // What lies around a pixel is as good as random: writing always is cheaper than branching.
  auto const visit = [&](std::uint32_t index) {
    uchar const state = state_[index];
    uchar const next = claimed_[state];
    seen |= state;
    state_[index] = next;
    region[size] = index;
    size += next != state ? 1 : 0;
  };
  visit(first);
  bool isAcross = false;
  for (std::size_t k = 0; k < size; ++k) {
    std::uint32_t const index = region[k];
    // Growth is going to ask for these in an order that no processor foresees.
    prefetch(wrapped_ + index);
    prefetch(order_ + index);
    prefetch(reading_ + index);
    bool const isInFirstRow = index < inside_;
    bool const isInLastRow = index >= endInside_;
    isAcross |= isInFirstRow | isInLastRow;
    visit(index - 1);
    visit(index + 1);
    if (!isInFirstRow) {
      visit(index - stride_);
    }
    if (!isInLastRow) {
      visit(index + stride_);
    }
    if ((seen & growth_step::left) != 0 || size > largestRegion) {
      regionSize_ = size;
      return Extent::Large;
    }
  }
  regionSize_ = size;
  return isAcross ? Extent::Across : Extent::Inside;
}

void BandGrowth::markClaimed(uchar step) {
  for (std::size_t k = 0; k < regionSize_; ++k) {
    state_[region_[k]] = withStep(state_[region_[k]], step);
  }
}

void BandGrowth::grow() {
  queue_.clear();
  for (std::size_t k = 0; k < regionSize_; ++k) {
    std::uint32_t const index = region_[k];
    if (pixel_state::isWaiting(state_[index])) {
      queue_.addSeed(qualityAt(index), index);
    }
  }
  queue_.sortSeeds(SeedOrder::Any);
  while (!queue_.empty()) {
    takeTurn(queue_.pop());
  }
}

void BandGrowth::growLeft(std::vector<uchar> const& hasWaiting) {
  queue_.clear();
  for (std::size_t row = 0; row < hasWaiting.size(); ++row) {
    if (hasWaiting[row] == 0) {
      continue;
    }
    forEachWaiting(static_cast<int>(row), [&](std::uint32_t index) {
      if ((state_[index] & pixel_state::growthBits) == growth_step::left) {
        queue_.addSeed(qualityAt(index), index);
      }
    });
  }
  queue_.sortSeeds(SeedOrder::ByIndex);
  while (!queue_.empty()) {
    takeTurn(queue_.pop());
    // Between two askings lie about a millisecond's turns.
    constexpr std::uint32_t period = 8192;
    if (++turns_ % period == 0) {
      progress_.at("unwrapping", 0.5);
    }
  }
}

/// As `calc_quality`: the larger, the smaller the largest jump of the phase to a neighbour.
float BandGrowth::qualityAt(std::uint32_t index) const {
  constexpr double perPeriod = 1.0 / CV_2PI;
  float const* const p = wrapped_ + index;
  float const jump = std::max(std::max(std::fabs(p[0] - p[-1]), std::fabs(p[0] - p[1])),
                              std::max(std::fabs(p[0] - *(p - stride_)), std::fabs(p[0] - p[stride_])));
  return static_cast<float>(1.0 - static_cast<float>(jump - CV_2PI) * perPeriod);
}

/// The pixel takes the order that fits one of its known neighbours best, and its open ones wait.
void BandGrowth::takeTurn(std::uint32_t index) {
  float const wrapped = wrapped_[index];
  auto const reading =
      static_cast<CodeReading>(isChecked_ ? reading_[index] : 0); // far away, so asked for early
  std::array<std::uint32_t, 4> const neighbours = {index - 1, index + 1, index - stride_, index + stride_};
  std::array<float, neighbours.size()> distances{};
  std::array<int, neighbours.size()> orders{};
  // Which neighbours are known is as good as random: reckoning is cheaper than branching.
  constexpr std::array<float, 2> ofUnknown = {twoPiFloat, 0.0F};
  for (std::size_t k = 0; k < neighbours.size(); ++k) {
    float const rise = wrapped_[neighbours[k]] - wrapped;
    float const apart = std::fabs(rise);
    std::size_t const isKnown = state_[neighbours[k]] / pixel_state::knownBit;
    distances[k] = std::min(apart, twoPiFloat - apart) + ofUnknown[isKnown];
    orders[k] = order_[neighbours[k]] + (rise > piFloat ? 1 : 0) - (rise < -piFloat ? 1 : 0);
  }
  auto const nearer = [&](std::size_t i, std::size_t k) {
    return i + (k - i) * static_cast<std::size_t>(distances[k] < distances[i]);
  };
  std::size_t const best = nearer(nearer(0, 1), nearer(2, 3));
  if (distances[best] >= piFloat) {
    return;
  }
  int const order = orders[best];
  float const absolute = wrapped + twoPiFloat * static_cast<float>(order);
  if (absolute < 0.0F || (isChecked_ && !codes_.fits(reading, absolute))) {
    state_[index] = pixel_state::noCode;
    return;
  }
  order_[index] = static_cast<short>(order);
  state_[index] = pixel_state::grown;
  std::array<std::uint32_t, neighbours.size()> woken{};
  std::size_t count = 0;
  for (std::uint32_t const neighbour : neighbours) {
    uchar const state = state_[neighbour];
    bool const isWoken = isOpenAndNotWaiting(state);
    state_[neighbour] = static_cast<uchar>(state | (isWoken ? waitingBit : 0));
    woken[count] = neighbour;
    count += isWoken ? 1 : 0;
  }
  for (std::size_t k = 0; k < count; ++k) {
    queue_.push(qualityAt(woken[k]), woken[k]);
  }
}

} // namespace vorn::mv::sl
