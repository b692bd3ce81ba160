// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

#include "core/progress.hpp"

namespace vorn::mv {

/// 255 where the image is no brighter than its surroundings by more than `excess` grey levels, 0 where it is.
/// The surroundings are the image blurred by a Gaussian of `sigma` pixels, at least 4, to a grey level: it is
/// blurred at a quarter of its size and drawn out again.
///
/// @param image H x W CV_8UC1
/// @throws Cancelled when the observer stops it
cv::Mat groundOf(cv::Mat const& image, double sigma, int excess, Progress const& progress);

} // namespace vorn::mv
