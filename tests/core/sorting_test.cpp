// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "core/median.hpp"
#include "core/radix_sort.hpp"

namespace vorn {
namespace {

using Keys = std::vector<std::uint64_t>;

/// Keys whose upper halves have `bits` bits, with marks in the lower halves that tell equal ones apart.
Keys randomKeys(std::size_t count, unsigned bits, std::mt19937_64& random) {
  Keys keys(count);
  for (std::size_t i = 0; i < count; ++i) {
    std::uint64_t const upper = random() >> (64 - bits);
    keys[i] = upper << 32U | (random() & 0xFFFFFFFFU);
  }
  return keys;
}

TEST(RadixSort, OrdersByUpperHalvesAndKeepsEqualOnesInOrder) {
  std::mt19937_64 random(1);
  auto const upper = [](std::uint64_t key) { return key >> 32U; };
  Keys other;
  for (std::size_t const count : {0U, 1U, 2U, 700U, 5000U}) {
    // From many equal ones, that differ in one digit alone, to all digits.
    for (unsigned const bits : {1U, 8U, 11U, 15U, 30U}) {
      Keys const keys = randomKeys(count, bits, random);
      Keys rising = keys;
      Keys risingExpected = keys;
      sortByUpperHalf<10, KeyOrder::Rising>(rising, other);
      std::stable_sort(risingExpected.begin(), risingExpected.end(),
                       [&](auto a, auto b) { return upper(a) < upper(b); });
      EXPECT_EQ(rising, risingExpected) << count << " keys of " << bits << " bits";
    }
    for (unsigned const bits : {1U, 12U, 23U, 32U}) {
      Keys const keys = randomKeys(count, bits, random);
      Keys falling = keys;
      Keys fallingExpected = keys;
      sortByUpperHalf<11, KeyOrder::Falling>(falling, other);
      std::stable_sort(fallingExpected.begin(), fallingExpected.end(),
                       [&](auto a, auto b) { return upper(a) > upper(b); });
      EXPECT_EQ(falling, fallingExpected) << count << " keys of " << bits << " bits";
    }
  }
}

TEST(Median, IsTheMiddleOfTheSortedValues) {
  std::mt19937 random(2);
  EXPECT_EQ(medianOf(std::vector<float>()), 0.0F);
  for (std::size_t count = 1; count < 40; ++count) {
    std::vector<int> values(count);
    std::generate(values.begin(), values.end(), [&] { return static_cast<int>(random() % 50) - 10; });
    std::vector<int> sorted = values;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(medianOf(values), sorted[count / 2]) << count;
    for (std::size_t rank = 0; rank < count; ++rank) {
      EXPECT_EQ(rankedAmong(values, rank), sorted[rank]) << rank << " of " << count;
    }
    EXPECT_EQ(medianAmong(values), sorted[count / 2]) << count;
  }
}

} // namespace
} // namespace vorn
