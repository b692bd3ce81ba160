// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

#include "core/progress.hpp"

namespace vorn::mv::sl {

/// Smooths a wrapped phase over (2 `radius` + 1) x (2 `radius` + 1) pixels.
///
/// What is averaged are the phasors magnitude * exp(i phase), which know no wrap and weigh each pixel by its
/// signal. Each is first turned back by what the phase runs from the middle of the window to it, for a fringe
/// is only a few pixels wide and would average to nothing. Masked pixels do not count. A pixel whose phase
/// would turn by more than an eighth of a period keeps it: the window reaches across a depth step there.
/// @param phase [0, 2 pi), in place
/// @param mask  0: left out
void blurPhase(cv::Mat_<float>& phase, cv::Mat_<float> const& magnitude, cv::Mat_<uchar> const& mask,
               int radius, Progress const& progress = {});

} // namespace vorn::mv::sl
