// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vorn::mv::scanner {

/// The shape of a pattern set.
struct SlPatternInfo {
  int phaseCount;  ///< phase-shift images
  int bitCount;    ///< bits that number the stripes
  int stripeCount; ///< stripes of four projector pixels
};

} // namespace vorn::mv::scanner
