// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>

namespace vorn::tools {

/// The option of the least height of a laser line: `LaserLineOptions::minContrast`.
inline CLI::Option* addContrastOption(CLI::App& command, double& contrast) {
  constexpr double least = 1;
  constexpr double most = 255;
  return command
      .add_option("--contrast", contrast, "Least height of a laser line above its surroundings, grey levels")
      ->check(CLI::Range(least, most))
      ->capture_default_str();
}

} // namespace vorn::tools
