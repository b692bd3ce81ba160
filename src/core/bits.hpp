// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#if !defined(VORN_MV_PLAIN) && defined(__GNUC__)
#define VORN_BUILTIN_BITS
#endif

namespace vorn {

/// The place of the lowest bit set in a value that is not 0.
inline int lowestBit(std::uint64_t bits) {
#ifdef VORN_BUILTIN_BITS
  return __builtin_ctzll(bits);
#else
  int place = 0;
  while ((bits & 1U) == 0) {
    bits >>= 1U;
    ++place;
  }
  return place;
#endif
}

/// Eight bytes as one number, the first one lowest.
inline std::uint64_t eightBytes(unsigned char const* bytes) {
  std::uint64_t word = 0;
  for (unsigned k = 0; k < 8; ++k) {
    word |= static_cast<std::uint64_t>(bytes[k]) << (8 * k);
  }
  return word;
}

/// The place of the highest bit set in a value that is not 0.
inline int highestBit(std::uint64_t bits) {
#ifdef VORN_BUILTIN_BITS
  return 63 - __builtin_clzll(bits);
#else
  int place = 0;
  while ((bits >>= 1U) != 0) {
    ++place;
  }
  return place;
#endif
}

/// Tells the processor that what stands at `address` is going to be read soon.
inline void prefetch([[maybe_unused]] void const* address) {
#ifdef VORN_BUILTIN_BITS
  __builtin_prefetch(address);
#endif
}

} // namespace vorn
