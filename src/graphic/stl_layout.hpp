// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace vorn::graphic {

// A binary STL file: a header of free text, the number of triangles as a 32-bit integer, then for each
// triangle its normal, its three corners (3 floats each) and 2 attribute bytes; all little-endian.
constexpr std::size_t stlHeaderSize = 80;
constexpr std::size_t stlPrologueSize = stlHeaderSize + 4;
constexpr std::size_t stlCornersOffset = 12;
constexpr std::size_t stlTriangleSize = 50;

} // namespace vorn::graphic
