// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

namespace vorn::tools {

/// Whether the bytes of a TIFF file say that it holds the raw pixels of a colour sensor.
bool isMosaicTiff(std::vector<unsigned char> const& bytes);

/// The pictures in the bytes of a TIFF file, without the smaller copies and masks that go with them. 1 where
/// that is not told, as of other files.
std::size_t pageCount(std::vector<unsigned char> const& bytes);

} // namespace vorn::tools
