// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "support/file_content.hpp"

namespace vorn::test {

/// A JSON document that a page holds: its "report" or its "scene".
inline nlohmann::json pageJson(std::string const& path, std::string const& id) {
  std::string const page = contentOf(path);
  std::string const start = "<script type=\"application/json\" id=\"" + id + "\">";
  std::size_t const at = page.find(start) + start.size();
  return nlohmann::json::parse(page.substr(at, page.find("</script>", at) - at));
}

} // namespace vorn::test
