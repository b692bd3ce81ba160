// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace vorn::tools {

/// Says on standard error what the user should know though the work goes on: "vorn-mv: warning: ...", and
/// keeps it for the report.
void warn(std::string const& text);

/// What was said since the last call.
std::vector<std::string> takeWarnings();

} // namespace vorn::tools
