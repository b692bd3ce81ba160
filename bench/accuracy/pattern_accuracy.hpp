// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vorn::bench {

/// Prints how exact the built-in pattern sets decode, against the exact truth: noise against the bound of
/// least squares at several depths, wrong orders at the noise that is to make few, three exposures of a
/// surface dark and shining, and what a sharp projector's stairs leave.
/// @param side pixels of the drawn images' sides; 1000 for a million pixels a set
void printPatternAccuracy(int side);

} // namespace vorn::bench
