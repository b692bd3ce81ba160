// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv {

/// Turns a wrapped phase map into an absolute one: trusted pixels take their fringe order from the stripe
/// code, the others by growth from them, best quality first.
///
/// A trusted pixel (state 255, code at least 0) becomes phase + 2π·code. A waiting pixel takes the fringe
/// order that brings it nearest to one of its unwrapped 4-neighbours; when none is within π it becomes -1 for
/// good. The one-pixel border is never changed. A masked-out interior pixel becomes -1; it is not grown into,
/// except next to a trusted pixel.
///
/// Of the waiting pixels the one of best quality has its turn first, of equal ones the first in row order;
/// NaN counts as the lowest quality.
///
/// Working memory: 5 to 8 bytes a pixel, up to 18 where every second pixel stands alone.
/// @param phase   H x W, the wrapped phase in [0, 2π) on entry, the absolute phase on return
/// @param quality H x W, larger is better (`calc_quality`); not read at the border
/// @param state   H x W CV_8UC1: on entry 255 where the code is to be trusted, else 0, or 95 to close a pixel
///                to growth; on return 255 where the phase is absolute, 95 where it was rejected or closed,
///                0 where it was not reached
/// @param code    H x W CV_16SC1, stripe indices; negative ones are not trusted
/// @param mask    H x W CV_8UC1, 0 marks what to leave out; empty takes every pixel
/// @throws std::invalid_argument for a map of another type or size; nothing is changed then
VORN_API void unwrap_phase(cv::Mat_<float>& phase, cv::Mat_<float> const& quality, cv::Mat& state,
                           cv::Mat const& code, cv::Mat const& mask = cv::Mat());

} // namespace vorn::mv
