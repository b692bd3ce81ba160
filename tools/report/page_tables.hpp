// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "tools/report/page.hpp"

/// What every report holds as tables for its page.
namespace vorn::tools {

/// The command's own figures: members that are numbers, words or short lists, by the objects that hold them.
std::vector<PageTable> figureTables(nlohmann::json const& report);

/// What was set: options that were given or have a default, and properties by class.
std::vector<PageTable> settingTables(nlohmann::json const& report);

/// What was read, with sizes and hashes.
PageTable inputTable(nlohmann::json const& report);

/// A number with as many digits as a person reads, at least three of them valid.
std::string figure(double value);

/// A count with a space between thousands.
std::string countText(std::size_t count);

} // namespace vorn::tools
