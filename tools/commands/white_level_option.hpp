// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>

#include "tools/commands/number_check.hpp"

namespace vorn::tools {

/// The option of the camera's white: `ScanSettings::whiteLevel`.
inline CLI::Option* addWhiteLevelOption(CLI::App& command, double& level) {
  return command
      .add_option("--white-level", level,
                  "Grey value at which the camera's pixels are full; 0: 255 in 8 bits, in deeper images the "
                  "end of the range of 10, 12, 14 or 16 bits that they use")
      ->check(notBelowZero())
      ->capture_default_str();
}

} // namespace vorn::tools
