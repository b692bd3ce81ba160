// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <vorn/core/export.hpp>

namespace vorn::mv {

/// The reflected binary Gray code of a number: neighbouring numbers differ in one bit.
/// Source: F. Gray, "Pulse code communication", US patent 2632058, 1953.
VORN_API unsigned int bin2Gray(unsigned int binary);

/// The number that a Gray code word stands for; the inverse of `bin2Gray` over all 32-bit words.
VORN_API unsigned int gray2Bin(unsigned int gray);

/// Fills a decoding table of `n` entries: `lut[i] = gray2Bin(i)`.
/// @param n number of entries, 0 to 65536 (what 16 bits can hold)
/// @throws Exception when `n` is outside that range; `lut` is unchanged then
VORN_API void create_graycode_LUT(std::vector<unsigned short>& lut, int n);

} // namespace vorn::mv
