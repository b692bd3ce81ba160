// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <vorn/mv/sl/pattern_set.hpp>

namespace vorn::mv {

/// In what the images of a set contradict its description.
enum class PatternFault {
  /// The steps of a fringe stray from it, more than lamps that flicker and light that is not linear explain.
  /// Three steps tell nothing of that.
  Steps,
  /// The mean brightness of a fringe, of one of its steps, of a bit and its inverse, or of white and black,
  /// is
  /// not that of others; or no image of a scan has what it takes for a single point.
  Level,
  Mirrored, ///< a fringe runs against the bits, the other fringes or the calibration
  Shifted,  ///< a fringe begins elsewhere than the bits, or the other fringes, say
  Stripes   ///< neighbouring stripes are not numbered one after another
};

/// Images that do not show what their set says of them, such as two that were exchanged. What they decode to
/// is not to be trusted, however many pixels that are.
///
/// Not everything can be told: columns and rows exchanged as a whole, or all fringes of a set without bits
/// mirrored, are a set of their own.
struct PatternDoubt {
  PatternFault fault = PatternFault::Steps; ///< how they contradict it
  PatternAxis axis = PatternAxis::Column;   ///< of the fringe or the bits
  double period = 0.0;                      ///< of the fringe, projector pixels; 0 of bits
  /// Numbers of images in the set: two when exchanging them mends it or they show the same, one when leaving
  /// it out does; else all of the fringe or the bits.
  std::vector<std::size_t> images;
  double value = 0.0; ///< what was found, in parts of the amplitude, of the period or of the stripes' borders
  double limit = 0.0; ///< from which on it is doubted
  std::string text;   ///< the same in words
};

} // namespace vorn::mv
