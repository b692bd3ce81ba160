// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <vorn/mv/sl/pattern_doubt.hpp>

#include "core/progress.hpp"
#include "sl/patterns/kept_samples.hpp"
#include "sl/patterns/reading_plan.hpp"

namespace vorn::mv::sl {

/// What the kept samples of all images say of their set.
struct SampleCheck {
  /// Of each fringe of the plan, the part of its steps' swing that does not fit it, in parts of the swing;
  /// NaN where the steps do not show it.
  std::vector<double> misfits;
  std::vector<PatternDoubt> doubts;
};

/// Whether the steps of each fringe, and the mean levels of all patterns, fit together pixel by pixel. Noise
/// does not count, nor does an image that is brighter or darker as a whole, nor a second or third harmonic
/// of one share everywhere. Where something does not fit, the two images are sought that are to be
/// exchanged, or the one that is to be left out; not where so much is doubted that all images look out of
/// order.
/// @throws Cancelled when the observer stops the job, which is asked again and again
SampleCheck checkSamples(PatternSet const& set, ReadingPlan const& plan, KeptSamples const& samples,
                         Progress const& progress);

} // namespace vorn::mv::sl
