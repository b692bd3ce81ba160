// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/unwrap/growth_queue.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <functional>

namespace vorn::mv {

namespace {

/// Below this number of keys a comparison sort beats clearing the counters of the radix sort.
constexpr std::size_t radixSortThreshold = 512;

/// Qualities are sorted in three passes.
constexpr unsigned int digitBits = 11;
constexpr std::size_t digitValues = std::size_t{1} << digitBits;
constexpr std::array<unsigned int, 3> digitShifts = {32, 32 + digitBits, 32 + 2 * digitBits};

/// Sorts keys by falling upper halves; equal ones keep their order. `other` is working memory.
void radixSort(std::vector<std::uint64_t>& keys, std::vector<std::uint64_t>& other) {
  // The largest digit comes first.
  auto const digitOf = [](std::uint64_t key, unsigned int shift) {
    return static_cast<std::size_t>(~key >> shift) % digitValues;
  };
  std::array<std::array<std::uint32_t, digitValues>, digitShifts.size()> counts{};
  for (std::uint64_t const key : keys) {
    for (std::size_t pass = 0; pass < digitShifts.size(); ++pass) {
      ++counts[pass][digitOf(key, digitShifts[pass])];
    }
  }
  for (std::size_t pass = 0; pass < digitShifts.size(); ++pass) {
    unsigned int const shift = digitShifts[pass];
    if (counts[pass][digitOf(keys[0], shift)] == keys.size()) {
      continue;
    }
    std::uint32_t start = 0;
    for (std::uint32_t& count : counts[pass]) {
      std::uint32_t const size = count;
      count = start;
      start += size;
    }
    other.resize(keys.size());
    for (std::uint64_t const key : keys) {
      other[counts[pass][digitOf(key, shift)]++] = key;
    }
    keys.swap(other);
  }
}

} // namespace

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

void GrowthQueue::sortSeeds() {
  if (seeds_.size() < radixSortThreshold) {
    std::sort(seeds_.begin(), seeds_.end(), std::greater<>());
  } else {
    radixSort(seeds_, sorted_);
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
