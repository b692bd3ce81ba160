// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/report/page_options.hpp"

#include "tools/commands/number_check.hpp"

namespace vorn::tools {

void PageOptions::addTo(CLI::App& command) {
  CLI::Option* html = command.add_option(
      "--html", path, "Write the result as a page to turn, read and print: one file for any browser");
  constexpr std::size_t most = 20000000;
  command.add_option("--html-points", mostPoints, "Thin each cloud of the page to this many points")
      ->transform(between(std::size_t{1}, most))
      ->needs(html)
      ->capture_default_str();
}

} // namespace vorn::tools
