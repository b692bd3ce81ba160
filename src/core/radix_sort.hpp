// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/pieces.hpp"

namespace vorn {

/// Below this number of keys a comparison sort beats clearing the counters of the radix sort.
constexpr std::size_t radixSortThreshold = 512;

enum class KeyOrder { Rising, Falling };

/// Sorts keys by their upper halves, of which the lowest 3 `digitBits` bits count; equal ones keep their
/// order.
/// @param keys fewer than 2^32
/// @param other working memory
/// @throws Cancelled when the observer stops it; the keys are of no use then
template <unsigned int digitBits, KeyOrder order>
void sortByUpperHalf(std::vector<std::uint64_t>& keys, std::vector<std::uint64_t>& other,
                     Progress const& progress = {}) {
  constexpr std::size_t keysAtOnce = std::size_t{1} << 19;
  constexpr char const* stage = "sorting points";
  constexpr std::size_t digitValues = std::size_t{1} << digitBits;
  constexpr std::array<unsigned int, 3> shifts = {32, 32 + digitBits, 32 + 2 * digitBits};
  auto const digitOf = [](std::uint64_t key, unsigned int shift) {
    return static_cast<std::size_t>((order == KeyOrder::Falling ? ~key : key) >> shift) % digitValues;
  };
  std::array<std::array<std::uint32_t, digitValues>, shifts.size()> counts{};
  inPieces(keys.size(), keysAtOnce, progress.part(0.0, 0.25), stage, [&](std::size_t first, std::size_t end) {
    for (std::size_t i = first; i < end; ++i) {
      for (std::size_t pass = 0; pass < shifts.size(); ++pass) {
        ++counts[pass][digitOf(keys[i], shifts[pass])];
      }
    }
  });
  for (std::size_t pass = 0; pass < shifts.size(); ++pass) {
    unsigned int const shift = shifts[pass];
    std::array<std::uint32_t, digitValues>& next = counts[pass];
    if (keys.empty() || next[digitOf(keys[0], shift)] == keys.size()) {
      continue; // all digits are the same
    }
    std::uint32_t start = 0;
    for (std::uint32_t& count : next) {
      std::uint32_t const size = count;
      count = start;
      start += size;
    }
    double const done = 0.25 * static_cast<double>(pass + 1);
    resizeInPieces(other, keys.size(), progress.part(done, done), stage);
    inPieces(keys.size(), keysAtOnce, progress.part(done, done + 0.25), stage,
             [&](std::size_t first, std::size_t end) {
               for (std::size_t i = first; i < end; ++i) {
                 other[next[digitOf(keys[i], shift)]++] = keys[i];
               }
             });
    keys.swap(other);
  }
}

} // namespace vorn
