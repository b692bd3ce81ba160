// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>

#include <opencv2/core/mat.hpp>

namespace vorn::mv {

/// Pixels that one call of the row functions takes at most: the indices of a block stay in the first-level
/// cache.
constexpr int phaseBlockLength = 512;

/// Where the pixels of a block find their phase and amplitude in the tables.
using PhaseIndices = std::array<std::int32_t, phaseBlockLength>;

/// Table indices of `length` pixels, at most `phaseBlockLength`, from the rows of four phase images.
void indexFourSteps(uchar const* i0, uchar const* i1, uchar const* i2, uchar const* i3, int length,
                    PhaseIndices& indices);

/// The same for three phase images and their tables.
void indexThreeSteps(uchar const* i0, uchar const* i1, uchar const* i2, int length, PhaseIndices& indices);

/// out[x] = table[indices[x]] for `length` pixels.
void readTable(float const* table, PhaseIndices const& indices, int length, float* out);

/// The phases of `length` pixels, at most `phaseBlockLength`, from the rows of four phase images of 16 bits,
/// which no table holds.
void phaseOfFourSteps(std::array<std::uint16_t const*, 4> const& steps, int length, float* out);

/// Sets out[x] to -1 where mask[x] is 0.
void rejectMasked(std::uint8_t const* mask, int length, float* out);
void rejectMasked(std::uint16_t const* mask, int length, float* out);

} // namespace vorn::mv
