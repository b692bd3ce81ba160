// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

/// What this process takes from the heap, by whatever way of asking for memory.
namespace vorn::bench {

/// Bytes that are taken now.
std::size_t allocatedBytes();

/// The most bytes that were taken at once since `resetPeak`.
std::size_t peakBytes();

/// Begins anew with what is taken now.
void resetPeak();

} // namespace vorn::bench
