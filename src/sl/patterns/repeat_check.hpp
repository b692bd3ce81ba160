// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include <vorn/mv/sl/pattern_doubt.hpp>

#include "sl/patterns/kept_samples.hpp"
#include "sl/patterns/set_groups.hpp"

namespace vorn::mv::sl {

/// What images of a set are there twice.
struct RepeatCheck {
  std::vector<PatternDoubt> doubts;
  /// Bits that look the same at all places. Where few stripes are seen, they are.
  std::vector<std::pair<std::size_t, std::size_t>> alike;
};

/// Whether two of four even steps of a fringe are one, or any two images equal to the last level. Noise makes
/// images that show the same differ; where there is none, that they are equal tells nothing.
/// @param fringe of four even steps
RepeatCheck checkRepeats(PatternSet const& set, Fringe const& fringe, KeptSamples const& samples);

} // namespace vorn::mv::sl
