// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include <vorn/mv/sl/pattern_doubt.hpp>

#include "sl/patterns/code_word.hpp"
#include "sl/patterns/pattern_reading.hpp"
#include "sl/patterns/set_groups.hpp"

namespace vorn::mv::sl {

/// Whether stripes that are as wide as the fringe are numbered on wherever it runs on evenly from one to the
/// next. Where surfaces end it does not, so that a few borders tell, other than in `checkCrossings`: of an
/// image of bits that is there twice, or of half the stripes running the other way.
/// @param phase of the fringe
/// @param certain what makes a bit certain
/// @param alike   pairs of images that look the same: what is named, where there is one
std::vector<PatternDoubt> checkRunning(PatternSet const& set, Fringe const& fringe, CodeWord const& word,
                                       CodeMaps const& code, cv::Mat_<float> const& phase, float certain,
                                       std::vector<std::pair<std::size_t, std::size_t>> const& alike);

} // namespace vorn::mv::sl
