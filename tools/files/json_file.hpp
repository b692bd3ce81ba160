// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

#include <vorn/core/json_file.hpp>

namespace vorn::tools {

using vorn::readJsonFile;
using vorn::writeJsonFile;

/// The text of a JSON file: indented.
std::string jsonText(nlohmann::json const& json);

/// A number as JSON: null for what is not finite, which JSON has no place for.
nlohmann::json finiteOrNull(double value);

} // namespace vorn::tools
