// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <vorn/mv/sl/pattern_doubt.hpp>

#include "tools/report/report.hpp"

namespace vorn::tools {

/// Notes as "doubts" where captured images contradict their set, and warns of each.
void noteDoubts(std::vector<mv::PatternDoubt> const& doubts, Report& report);

/// The warnings alone.
void warnOfDoubts(std::vector<mv::PatternDoubt> const& doubts, Report& report);

} // namespace vorn::tools
