// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

namespace vorn::graphic {

/// The most bytes that one byte of LZF stands for: three bytes repeat up to 264.
constexpr std::size_t mostLzfGrowth = 88;

/// Unpacks data in the LZF format: runs of up to 32 bytes as they are, and repetitions of up to 264 bytes
/// from up to 8192 bytes back.
/// @param size how many bytes come out
/// @return no bytes when the data are damaged or another number comes out
std::vector<char> unpackLzf(char const* data, std::size_t length, std::size_t size);

} // namespace vorn::graphic
