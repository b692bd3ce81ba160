// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

#include "calib/target/dot_origin.hpp"

namespace vorn::mv {

/// The radius of a grid's ordinary dots, pitches, from the share of a grid cell's light that comes from its
/// dot: the mean grey level of the cell, on the scale from the ground in its corners to the middle of the
/// dot. Unlike the area of a thresholded blob it does not grow with blur nor with the coarseness of a reduced
/// image.
///
/// @param image in full, H x W CV_8UC1, at least 2 x 2
/// @return 0 where no dot has a cell around it that can be seen
double radiusByLight(cv::Mat const& image, RawGrid const& grid);

} // namespace vorn::mv
