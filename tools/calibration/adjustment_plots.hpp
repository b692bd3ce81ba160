// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <vorn/mv/measure/plot.hpp>
#include <vorn/mv/scanner/calibration.hpp>

namespace vorn::tools {

/// What the views of a calibration show beside their errors: where each device's image holds dots, and with
/// an adjustment the target's shape and how well the views agree on where the devices stand.
std::vector<mv::Plot> adjustmentPlots(mv::Calibration const& calibration, mv::Ground ground);

} // namespace vorn::tools
