// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "core/simd.hpp"

#if !defined(VORN_MV_PLAIN) && defined(__GNUC__)
#define VORN_VECTOR_TYPES
#endif

namespace vorn {

/// Eight values that are reckoned with at once, lane by lane. A comparison gives -1 in a lane where it holds,
/// else 0.
constexpr std::size_t laneCount = 8;

#ifdef VORN_VECTOR_TYPES

using FloatLanes = float __attribute__((vector_size(laneCount * sizeof(float))));
using IntLanes = std::int32_t __attribute__((vector_size(laneCount * sizeof(float))));

// Results through references: lanes as a return value would be passed differently by differently compiled
// code.
VORN_ALWAYS_INLINE void toFloats(IntLanes const& values, FloatLanes& floats) {
  floats = __builtin_convertvector(values, FloatLanes);
}
VORN_ALWAYS_INLINE void select(IntLanes const& condition, FloatLanes const& a, FloatLanes const& b,
                               FloatLanes& chosen) {
  chosen = condition ? a : b;
}

#else

template <class T>
struct Lanes {
  std::array<T, laneCount> values;

  T& operator[](std::size_t lane) { return values[lane]; }
  T operator[](std::size_t lane) const { return values[lane]; }

  template <class R, class Operation>
  static Lanes<R> each(Operation const& operation) {
    Lanes<R> result = {};
    for (std::size_t lane = 0; lane < laneCount; ++lane) {
      result[lane] = operation(lane);
    }
    return result;
  }
  static Lanes of(T value) {
    return each<T>([=](std::size_t) { return value; });
  }

  friend Lanes operator+(Lanes const& a, Lanes const& b) {
    return each<T>([&](std::size_t i) { return a[i] + b[i]; });
  }
  friend Lanes operator+(Lanes const& a, T b) { return a + of(b); }
  friend Lanes operator*(Lanes const& a, Lanes const& b) {
    return each<T>([&](std::size_t i) { return a[i] * b[i]; });
  }
  friend Lanes operator*(Lanes const& a, T b) { return a * of(b); }
  friend Lanes operator-(Lanes const& a) {
    return each<T>([&](std::size_t i) { return -a[i]; });
  }
  friend Lanes operator&(Lanes const& a, Lanes const& b) {
    return each<T>([&](std::size_t i) { return a[i] & b[i]; });
  }
  friend Lanes operator&(Lanes const& a, T b) { return a & of(b); }
  friend Lanes operator~(Lanes const& a) {
    return each<T>([&](std::size_t i) { return ~a[i]; });
  }
  friend Lanes operator>>(Lanes const& a, unsigned b) {
    return each<T>([&](std::size_t i) { return a[i] >> b; });
  }
  friend Lanes<std::int32_t> operator<(Lanes const& a, Lanes const& b) {
    return each<std::int32_t>([&](std::size_t i) { return a[i] < b[i] ? -1 : 0; });
  }
  friend Lanes<std::int32_t> operator<(Lanes const& a, T b) { return a < of(b); }
  friend Lanes<std::int32_t> operator<=(Lanes const& a, T b) {
    return each<std::int32_t>([&](std::size_t i) { return a[i] <= b ? -1 : 0; });
  }
  Lanes& operator-=(Lanes const& b) {
    return *this = each<T>([&](std::size_t i) { return values[i] - b[i]; });
  }
  Lanes& operator|=(Lanes const& b) {
    return *this = each<T>([&](std::size_t i) { return values[i] | b[i]; });
  }
};

using FloatLanes = Lanes<float>;
using IntLanes = Lanes<std::int32_t>;

inline void toFloats(IntLanes const& values, FloatLanes& floats) {
  floats = FloatLanes::each<float>([&](std::size_t i) { return static_cast<float>(values[i]); });
}
inline void select(IntLanes const& condition, FloatLanes const& a, FloatLanes const& b, FloatLanes& chosen) {
  chosen = FloatLanes::each<float>([&](std::size_t i) { return condition[i] != 0 ? a[i] : b[i]; });
}

#endif

} // namespace vorn
