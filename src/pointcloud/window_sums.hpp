// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/simd.hpp"

namespace vorn::mv {

/// Sums of 2R + 1 consecutive rows of numbers, plain and weighted by their offset from the middle one, by
/// doubling: sums of 1, 2, 4, ... rows, of which the binary digits of 2R + 1 say which ones make it up. Every
/// step is a plain operation on whole rows, which vectorises; no term is ever taken away again, so nothing
/// drifts.
///
/// sums[i] = x[i] + ... + x[i + 2R], moments[i] = -R x[i] + ... + R x[i + 2R], i in [0, count), an element
/// being `step` numbers.
/// @param values        (count + 2R) * step numbers; used up
/// @param scratch       room for as many
/// @param sums,moments  room for count * step numbers
VORN_ALWAYS_INLINE void windowMoments(float* __restrict values, int count, int radius, int step,
                                      float* __restrict scratch, float* __restrict sums,
                                      float* __restrict moments) {
  int const whole = count * step;
  for (int i = 0; i < whole; ++i) {
    sums[i] = values[i];
    moments[i] = 0.0F;
  }
  int width = 1; // elements in a sum of `values`; their moments about the first one are in `scratch`
  int summed = 1;
  for (int digits = radius; digits != 0; digits >>= 1) {
    int const reach = width * step;
    // Those that later sums need and no more.
    int const length = (count + 2 * radius - 2 * width + 1) * step;
    auto const offset = static_cast<float>(width);
    if (width == 1) {
      for (int i = 0; i < length; ++i) {
        scratch[i] = values[i + reach];
        values[i] += values[i + reach];
      }
    } else {
      for (int i = 0; i < length; ++i) {
        scratch[i] += scratch[i + reach] + offset * values[i + reach];
        values[i] += values[i + reach];
      }
    }
    width *= 2;
    if ((digits & 1) != 0) {
      float const* const valuesOn = values + summed * step;
      float const* const scratchOn = scratch + summed * step;
      auto const shift = static_cast<float>(summed);
      for (int i = 0; i < whole; ++i) {
        sums[i] += valuesOn[i];
        moments[i] += scratchOn[i] + shift * valuesOn[i];
      }
      summed += width;
    }
  }
  auto const middle = static_cast<float>(radius);
  for (int i = 0; i < whole; ++i) {
    moments[i] -= middle * sums[i];
  }
}

/// The plain sums of `windowMoments` alone, one number an element.
VORN_ALWAYS_INLINE void windowSums(float* __restrict values, int count, int radius, float* __restrict sums) {
  for (int i = 0; i < count; ++i) {
    sums[i] = values[i];
  }
  int width = 1;
  int summed = 1;
  for (int digits = radius; digits != 0; digits >>= 1) {
    int const length = count + 2 * radius - 2 * width + 1;
    for (int i = 0; i < length; ++i) {
      values[i] += values[i + width];
    }
    width *= 2;
    if ((digits & 1) != 0) {
      for (int i = 0; i < count; ++i) {
        sums[i] += values[i + summed];
      }
      summed += width;
    }
  }
}

} // namespace vorn::mv
