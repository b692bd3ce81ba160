// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include "core/progress.hpp"

#include "core/progress.hpp"

namespace vorn::mv {

/// The viewing ray of every pixel, as normalised coordinates: the ray of pixel (row, col) is (x, y, 1).
///
/// Exact to the float; NaN where the lens model has no inverse. See Undistortion.
/// @param K camera matrix, 3 x 3
/// @param D empty, or 4, 5, 8, 12 or 14 distortion coefficients
/// @return H x W CV_32FC2; empty for an empty size
/// @throws Exception for matrices of other sizes
cv::Mat_<cv::Vec2f> undistortedMap(cv::Mat const& K, cv::Mat const& D, cv::Size const& size,
                                   Progress const& progress = {});

} // namespace vorn::mv
