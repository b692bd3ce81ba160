// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/mv/calib/laser_color.hpp>

namespace vorn::mv {

/// `findLaserColor` for lines that may run in any of some directions.
/// @param white level at which the images' pixels are full
LaserColor findLaserColor(std::vector<cv::Mat> const& images, LaserLineOptions const& options,
                          std::vector<LaserLineOptions::Direction> const& directions, double white);

} // namespace vorn::mv
