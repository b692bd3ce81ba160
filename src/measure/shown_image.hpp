// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/measure/amat.hpp>

namespace vorn::mv {

/// What is shown black and white.
struct ShownRange {
  double low = 0.0;
  double high = 1.0;
};

/// The range of the settings, or the one that they stand for where they are NaN.
/// @throws Exception when low is not below high
ShownRange shownRange(cv::Mat const& image, DrawSettings const& settings);

/// What `shownImage` gives for a part of this size.
cv::Size shownSize(cv::Size part, double zoom);

/// The shown part in three channels, zoomed; 8 bits stretched over the range, or the image's own depth.
/// @param shown written in place where it has that size and type
void shownImage(cv::Mat const& image, cv::Rect const& part, DrawSettings const& settings,
                ShownRange const& range, cv::Mat& shown);

} // namespace vorn::mv
