// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/json_file.hpp"

#include <cmath>

#include <nlohmann/json.hpp>

namespace vorn::tools {

std::string jsonText(nlohmann::json const& json) {
  // A file's name need not be UTF-8.
  return json.dump(1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

nlohmann::json finiteOrNull(double value) {
  return std::isfinite(value) ? nlohmann::json(value) : nlohmann::json();
}

} // namespace vorn::tools
