// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <vorn/mv/calib/adjustment.hpp>
#include <vorn/mv/calib/diagnosis.hpp>

namespace vorn::mv {

/// Of what was said, the fault of light or focus in one view's images alone; null where there is none. What
/// the view's points are off by is its consequence, not a second fault.
Finding* imageFaultOf(std::vector<Finding>& said, int view);

/// Adds what follows from a fault to its text.
void addConsequence(Finding& fault, std::string const& consequence);

/// Takes wrong dots out of findings where they are those of views whose images have a fault that was said,
/// and tells it with the fault.
/// @param said       what the images show
/// @param findings   what the adjustment shows
/// @param numbers    of the adjustment's views, as `said` counts them
void explainWrongDots(std::vector<Finding>& said, std::vector<Finding>& findings,
                      Adjustment const& adjustment, std::vector<int> const& numbers);

} // namespace vorn::mv
