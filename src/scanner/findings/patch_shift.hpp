// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>

namespace vorn::mv {

/// By how many pixels what is seen in `from` lies elsewhere in `to`, whose gain and offset may differ; by
/// `ViewFigures::largeMotion` where no small shift explains the difference. Nothing for clipped patches and
/// such without contrast.
std::optional<cv::Vec2d> shiftOf(cv::Mat_<float> const& from, cv::Mat_<float> const& to);

/// The length of the median of shifts, at most `ViewFigures::largeMotion`; untold for fewer than 10.
double typicalShift(std::vector<std::optional<cv::Vec2d>> const& shifts);

} // namespace vorn::mv
