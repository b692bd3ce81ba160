// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>
#include <string>

#include <CLI/App.hpp>

namespace vorn::tools {

/// The program's page of the manual, section 1, in the language of man(7).
void writeManualPage(std::ostream& out, CLI::App const& program, std::string const& version);

/// A bash script that completes commands, options and paths.
void writeBashCompletion(std::ostream& out, CLI::App const& program);

/// A zsh function that does, with the options' descriptions.
void writeZshCompletion(std::ostream& out, CLI::App const& program);

} // namespace vorn::tools
