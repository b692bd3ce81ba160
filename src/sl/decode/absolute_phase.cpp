// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/absolute_phase.hpp"

#include "core/simd.hpp"
#include "sl/decode/scan_maps.hpp"

namespace vorn::mv::sl {

namespace {

VORN_TARGET_CLONES
void addOrders(float const* wrapped, short const* order, uchar const* state, int n, float* __restrict out) {
  for (int x = 0; x < n; ++x) {
    float const absolute = absolutePhase(wrapped[x], order[x]);
    out[x] = state[x] >= pixel_state::knownBit ? absolute : unknownPhase;
  }
}

} // namespace

void absoluteRow(float const* wrapped, short const* order, uchar const* state, int n, float* out) {
  addOrders(wrapped, order, state, n, out);
}

} // namespace vorn::mv::sl
