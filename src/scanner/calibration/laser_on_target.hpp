// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

#include <vorn/mv/calib/laser_line.hpp>
#include <vorn/mv/scanner/calibration.hpp>

#include "calib/laser/laser_grey.hpp"
#include "core/progress.hpp"

namespace vorn::mv {

/// The points of a laser line on the even ground of the target, within the hull of its dots.
/// @param image  shows the line
/// @param target the target under plain light, CV_8UC1
/// @throws Cancelled when the observer stops it
ViewLine laserLineOnTarget(LaserGrey const& image, cv::Mat const& target, ViewPoints const& dots,
                           LaserLineOptions const& options, Progress const& progress);

} // namespace vorn::mv
