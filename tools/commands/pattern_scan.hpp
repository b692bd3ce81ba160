// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/commands/scan_options.hpp"
#include "tools/report/report.hpp"

namespace vorn::tools {

/// The scan of a projector's patterns: reads, scans, writes and reports.
/// @throws Exception for inputs and outputs that do not fit, and for a scan without a point
void runPatternScan(ScanOptions const& options, Report& report);

} // namespace vorn::tools
