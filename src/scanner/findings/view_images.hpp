// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/scanner/view_figures.hpp>

#include "sl/decode/grey_stack.hpp"

namespace vorn::mv {

/// What a camera saw of a view.
struct ViewImages {
  cv::Mat target;
  sl::GreyStack columns;
  sl::GreyStack rows;
};

/// The figures of a view whose sequences have the scanner's own code.
/// @param columns decoded column of each camera pixel
/// @param rows    decoded row of each camera pixel
/// @param dots    pixels of the target's dots
ViewFigures figuresOf(ViewImages const& view, cv::Mat_<float> const& columns, cv::Mat_<float> const& rows,
                      std::vector<cv::Point2f> const& dots);

/// Whether bands run through the images of a sequence.
bool isBanded(SequenceFigures const& figures);

} // namespace vorn::mv
