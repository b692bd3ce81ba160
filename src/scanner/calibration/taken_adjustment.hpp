// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <vorn/mv/calib/adjustment.hpp>
#include <vorn/mv/scanner/calibration.hpp>

#include "scanner/calibration/adjusted_views.hpp"

namespace vorn::mv {

/// Gives a calibration what was adjusted: the object its models, the used views their residuals without the
/// dots that were left out, the report its errors.
/// @param views that were adjusted
void takeAdjustment(Calibration& calibration, std::vector<AdjustmentView> const& views, Adjustment adjustment,
                    ViewAdjuster const& adjuster);

} // namespace vorn::mv
