// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <vorn/mv/sl/pattern_doubt.hpp>

#include "sl/patterns/code_word.hpp"
#include "sl/patterns/pattern_reading.hpp"
#include "sl/patterns/set_groups.hpp"

namespace vorn::mv::sl {

/// What the bits of an axis and its fringes tell of each pixel.
struct CrossingMaps {
  struct OfFringe {
    Fringe const* fringe;
    cv::Mat_<float> const* phase;
  };
  std::vector<CodeMaps const*> codes; ///< one for each exposure
  std::vector<OfFringe> fringes;
};

/// Whether stripes that are neighbours in the camera's image are numbered one after another, and whether the
/// fringes are there at their borders what they should be, and run the same way. Of stripes that are not, the
/// two bits are sought that are to be exchanged, or the one that is inverse.
/// @param certain what makes a bit certain
std::vector<PatternDoubt> checkCrossings(PatternSet const& set, PatternAxis axis, CodeWord const& code,
                                         CrossingMaps const& maps, float certain);

} // namespace vorn::mv::sl
