// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace vorn::mv::sl {

/// Positive numbers from 2^-24 to 2^40 to a part in 4000 in half the room, for maps of what needs no more.
/// Larger ones have larger shorts; 0 and less are 0.
using ShortFloat = std::uint16_t;

namespace short_float {

/// Of a float's bits, those that are dropped; ten of the fraction stay.
constexpr int dropped = 13;
constexpr int lowest = (127 - 24) << 10;

} // namespace short_float

inline ShortFloat toShortFloat(float value) {
  std::int32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  constexpr std::int32_t half = 1 << (short_float::dropped - 1);
  std::int32_t const rounded = ((bits + half) >> short_float::dropped) - short_float::lowest;
  constexpr std::int32_t most = 0xFFFF;
  return static_cast<ShortFloat>(value > 0.0F ? std::min(std::max(rounded, 1), most) : 0);
}

inline float fromShortFloat(ShortFloat value) {
  std::int32_t const bits = (static_cast<std::int32_t>(value) + short_float::lowest) << short_float::dropped;
  float out = 0.0F;
  std::memcpy(&out, &bits, sizeof out);
  return value == 0 ? 0.0F : out;
}

} // namespace vorn::mv::sl
