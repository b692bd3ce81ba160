// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstdint>
#include <opencv2/core/cvdef.h>

namespace vorn::sim {

/// A 64-bit hash with every output bit depending on every input bit (the finalizer of SplitMix64; Steele,
/// Lea, Flood, "Fast splittable pseudorandom number generators", 2014).
inline std::uint64_t scramble(std::uint64_t x) {
  x += 0x9e3779b97f4a7c15U;
  x = (x ^ (x >> 30U)) * 0xbf58476d1ce4e5b9U;
  x = (x ^ (x >> 27U)) * 0x94d049bb133111ebU;
  return x ^ (x >> 31U);
}

/// A standard normal number that depends on its key alone, so that noise is the same whichever thread draws
/// it (Box and Muller, 1958).
inline double gaussian(std::uint64_t key) {
  constexpr double scale = 1.0 / 4294967296.0;
  std::uint64_t const bits = scramble(key);
  double const radius = static_cast<double>((bits >> 32U) + 1U) * scale;
  double const angle = static_cast<double>(bits & 0xffffffffU) * scale;
  return std::sqrt(-2.0 * std::log(radius)) * std::cos(2.0 * CV_PI * angle);
}

} // namespace vorn::sim
