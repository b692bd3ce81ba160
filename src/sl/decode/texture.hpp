// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

#include "sl/decode/grey_stack.hpp"

namespace vorn::mv::sl {

/// What a pixel would show under white light: the mean of the four phase images plus the fringe amplitude,
/// CV_8UC1, where 255 is the stack's white.
/// @param stack of a scan, the phase images first
cv::Mat whiteLevel(GreyStack const& stack);

} // namespace vorn::mv::sl
