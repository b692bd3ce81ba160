// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace vorn::tools {

/// Runs the command line tool.
/// @param arguments what follows the program's name
/// @return the exit status: 0 done; 1 failed, after one line on standard error that says what and where; 2
/// wrong
///         usage
int runTool(std::vector<std::string> arguments);

} // namespace vorn::tools
