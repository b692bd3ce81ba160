// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

#include "tools/report/report.hpp"

namespace vorn::tools {

/// Gives a command its work, and the options that all commands have: `--report`, `--json`, `--quiet` and
/// `--verbose`. To be called after the command's own options are there.
///
/// What the work prints to `std::cout` is for people. It is silent with `--quiet` and `--json`, and goes to
/// standard error where standard output takes a file's content, as with `--report -`.
///
/// @param work        does it and fills the report, which is written afterwards; where it throws, only if the
///                    work has written it itself
/// @param reportNames the names of the option for the report's path
/// @param content     what the report holds, for the help text
void setWork(CLI::App& command, std::function<void(Report&)> work,
             std::string const& reportNames = "--report", std::string const& content = "");

} // namespace vorn::tools
