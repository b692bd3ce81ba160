// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/unwrap/growth_queue.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>

#include "core/radix_sort.hpp"

namespace vorn::mv {

void GrowthQueue::clear() {
  clearSeeds();
  later_.clear();
}

void GrowthQueue::clearSeeds() {
  seeds_.clear();
  next_ = 0;
}

std::uint64_t GrowthQueue::keyOf(float quality, std::uint32_t index) {
  float const normalized = quality + 0.0F; // -0 becomes 0
  std::uint32_t bits = 0;
  std::memcpy(&bits, &normalized, sizeof(bits));
  // IEEE 754 numbers of one sign are ordered as their bits are.
  constexpr std::uint32_t sign = 0x80000000U;
  std::uint32_t const ordered = (bits & sign) != 0 ? ~bits : bits | sign;
  std::uint32_t const rank = std::isnan(quality) ? 0 : ordered;
  return static_cast<std::uint64_t>(rank) << 32U | static_cast<std::uint32_t>(~index);
}

void GrowthQueue::sortSeeds(SeedOrder added) {
  if (seeds_.size() < radixSortThreshold || added == SeedOrder::Any) {
    std::sort(seeds_.begin(), seeds_.end(), std::greater<>());
  } else {
    constexpr unsigned int digitBits = 11; // a float in three passes
    sortByUpperHalf<digitBits, KeyOrder::Falling>(seeds_, sorted_);
  }
}

void GrowthQueue::push(float quality, std::uint32_t index) {
  later_.push_back(keyOf(quality, index));
  std::push_heap(later_.begin(), later_.end());
}

std::uint32_t GrowthQueue::pop() {
  bool const isSeed = later_.empty() || (next_ < seeds_.size() && seeds_[next_] > later_.front());
  std::uint64_t key = 0;
  if (isSeed) {
    key = seeds_[next_++];
  } else {
    std::pop_heap(later_.begin(), later_.end());
    key = later_.back();
    later_.pop_back();
  }
  return ~static_cast<std::uint32_t>(key);
}

} // namespace vorn::mv
