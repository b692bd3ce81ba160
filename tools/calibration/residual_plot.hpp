// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <vorn/mv/measure/plot.hpp>
#include <vorn/mv/scanner/calibration.hpp>

namespace vorn::tools {

/// The reprojection errors over the devices' images as arrows, much enlarged: a plot for each device, a
/// colour for each view, with the scale of the arrows in the legend.
std::vector<mv::Plot> residualPlots(mv::Calibration const& calibration, mv::Ground ground);

} // namespace vorn::tools
