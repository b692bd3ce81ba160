// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/json_file.hpp"

#include <nlohmann/json.hpp>

namespace vorn::tools {

std::string jsonText(nlohmann::json const& json) {
  return json.dump(1) + "\n";
}

} // namespace vorn::tools
