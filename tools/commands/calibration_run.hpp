// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/commands/calibrate_options.hpp"
#include "tools/report/report.hpp"

namespace vorn::tools {

/// Calibrates what the options say from the views in their folder, shows the figures and writes the files.
/// @throws Exception for options that cannot be together, and as the calibrations
void runCalibration(CalibrateOptions const& options, Report& report);

} // namespace vorn::tools
