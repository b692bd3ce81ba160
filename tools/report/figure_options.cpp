// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/report/figure_options.hpp"

#include <cmath>
#include <sstream>
#include <string>

#include <vorn/core/exception.hpp>

#include "tools/commands/number_check.hpp"

namespace vorn::tools {

void FigureOptions::addLight(CLI::App& command) {
  command.add_flag("--light", isLight, "Pictures on light ground, for print");
}

CLI::Option* FigureOptions::addRange(CLI::App& command, char const* what) {
  return command
      .add_option("--range", range,
                  std::string("Ends of the picture's colours, ") + what + "; default: what is there")
      ->type_name("LOW HIGH")
      ->check(numeral());
}

void FigureOptions::check() const {
  if (range &&
      !(std::isfinite(range->first) && std::isfinite(range->second) && range->first < range->second)) {
    std::ostringstream message;
    message << "--range: the low end, " << range->first << ", must be below the high end, " << range->second;
    throw Exception(message.str(), nullptr, 0, "vorn-mv");
  }
}

mv::DrawSettings FigureOptions::drawSettings() const {
  mv::DrawSettings settings;
  settings.ground = ground();
  return settings;
}

} // namespace vorn::tools
