// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include <vorn/mv/measure/plot.hpp>
#include <vorn/mv/scanner/calibration.hpp>

namespace vorn::tools {

/// What is systematic in the reprojection errors: their mean in cells of each device's image over all used
/// views, as arrows, much enlarged; those in a colour of their own that the dots' scatter does not explain.
/// A plot a device.
std::vector<mv::Plot> meanErrorPlots(mv::Calibration const& calibration, mv::Ground ground);

/// The reprojection errors of single views as arrows over each device's image, much enlarged, with the dots
/// that were left out: the devices of a view next to each other, all views at one scale a device.
/// @param most views: those with the largest errors, in the order of the calibration
std::vector<mv::Plot> viewErrorPlots(mv::Calibration const& calibration, mv::Ground ground, std::size_t most);

/// The root mean square errors of the used views, a series a device.
mv::Plot errorsByViewPlot(mv::Calibration const& calibration, mv::Ground ground);

} // namespace vorn::tools
