// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/phase/phase_rows.hpp"

#include "core/simd.hpp"
#include "sl/coding/lookup_tables.hpp"
#include "sl/patterns/pixel_rows.hpp"

namespace vorn::mv {

VORN_TARGET_CLONES
void indexFourSteps(uchar const* i0, uchar const* i1, uchar const* i2, uchar const* i3, int length,
                    PhaseIndices& indices) {
  constexpr int origin = maxDifference * lutColumns + maxDifference;
  std::int32_t* const index = indices.data();
  for (int x = 0; x < length; ++x) {
    index[x] = (i0[x] - i2[x]) * lutColumns + (i1[x] - i3[x]) + origin;
  }
}

VORN_TARGET_CLONES
void indexThreeSteps(uchar const* i0, uchar const* i1, uchar const* i2, int length, PhaseIndices& indices) {
  constexpr int origin = 2 * maxDifference * lutColumns + maxDifference;
  std::int32_t* const index = indices.data();
  for (int x = 0; x < length; ++x) {
    index[x] = (2 * i0[x] - i1[x] - i2[x]) * lutColumns + (i1[x] - i2[x]) + origin;
  }
}

// Plain loads: gathering eight entries at a time is no faster, as the table does not fit the first-level
// cache.
void readTable(float const* table, PhaseIndices const& indices, int length, float* out) {
  for (int x = 0; x < length; ++x) {
    out[x] = table[indices[static_cast<std::size_t>(x)]];
  }
}

namespace {

VORN_TARGET_CLONES
void differences(std::uint16_t const* a, std::uint16_t const* b, int length, float* __restrict out) {
  for (int x = 0; x < length; ++x) {
    out[x] = static_cast<float>(a[x] - b[x]);
  }
}

template <class T>
VORN_TARGET_CLONES void rejectMaskedOf(T const* mask, int length, float* out) {
  for (int x = 0; x < length; ++x) {
    out[x] = mask[x] != 0 ? out[x] : -1.0F;
  }
}

} // namespace

void phaseOfFourSteps(std::array<std::uint16_t const*, 4> const& steps, int length, float* out) {
  float sine[phaseBlockLength];
  float cosine[phaseBlockLength];
  float amplitude[phaseBlockLength];
  differences(steps[0], steps[2], length, sine);
  differences(steps[1], steps[3], length, cosine);
  sl::polarRow(sine, cosine, length, out, amplitude);
}

void rejectMasked(std::uint8_t const* mask, int length, float* out) {
  rejectMaskedOf(mask, length, out);
}

void rejectMasked(std::uint16_t const* mask, int length, float* out) {
  rejectMaskedOf(mask, length, out);
}

} // namespace vorn::mv
