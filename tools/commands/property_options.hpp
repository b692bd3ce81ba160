// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <CLI/App.hpp>

#include <vorn/core/property_set.hpp>

namespace vorn::tools {

/// Adds `--set NAME=VALUE`, which may be given more than once, and returns it.
/// @param what whose properties they are, for the help text
CLI::Option* addSetOption(CLI::App& command, std::vector<std::string>& assignments, std::string const& what);

/// Sets properties from "NAME=VALUE" texts.
/// @throws Exception for a text without "=", an unknown name (with those that exist) or a refused value
void applyAssignments(PropertySetBase& object, std::vector<std::string> const& assignments);

} // namespace vorn::tools
