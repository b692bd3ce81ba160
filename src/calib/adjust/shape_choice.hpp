// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <vorn/mv/calib/adjustment.hpp>

#include "calib/adjust/bundle.hpp"
#include "core/progress.hpp"

namespace vorn::mv {

/// Gives a solved bundle with a flat target the shape that the settings ask for, or that its views show, and
/// solves it again.
/// @return why the shape is simpler than what the views show signs of; empty where it is not
/// @throws Exception when the views do not determine a shape that the settings ask for by name
std::string chooseShape(Bundle& bundle, AdjustmentSettings const& settings, Progress const& progress);

/// What a bundle found out about its target.
/// @param significance the greatest parameter of the shape as a multiple of its standard deviation
TargetShape targetShapeOf(Bundle const& bundle, double significance, double flatS0);

/// Whether a fall of the sum of squares by `gain` for `parameters` more is more than chance at a level of one
/// in a thousand (F test).
/// @param squares what is left, with `freedom` degrees of freedom
bool isSignificant(double gain, double parameters, double squares, double freedom);

} // namespace vorn::mv
