// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/scanner/view_figures.hpp>

#include "sl/decode/grey_stack.hpp"

namespace vorn::mv {

/// The figures of one sequence of the scanner's own code.
/// @param map     decoded coordinate of each camera pixel
/// @param period  of the fringes, projector pixels
/// @param patches of the images on the target
SequenceFigures sequenceFiguresOf(sl::GreyStack const& sequence, cv::Mat_<float> const& map, int period,
                                  std::vector<cv::Rect> const& patches);

/// The median; `SequenceFigures::untold` of none.
double medianOrUntold(std::vector<double> values);

} // namespace vorn::mv
