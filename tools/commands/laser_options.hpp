// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <optional>
#include <string>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/laser_color.hpp>

#include "tools/commands/number_check.hpp"

namespace vorn::tools {

/// The option of the least height of a laser line: `LaserLineOptions::minContrast`.
inline CLI::Option* addContrastOption(CLI::App& command, double& contrast) {
  constexpr double least = 1;
  constexpr double most = 255;
  return command
      .add_option("--contrast", contrast, "Least height of a laser line above its surroundings, grey levels")
      ->check(between(least, most))
      ->capture_default_str();
}

/// What of colour pictures counts: `LaserScanSettings::color`.
inline CLI::Option* addLaserColorOption(CLI::App& command, std::string& color) {
  return command
      .add_option(
          "--laser-color", color,
          "What of colour pictures shows the line: found in them (auto), the brightest channel (brightest), "
          "blue, green, red, or the weights of the three as B,G,R")
      ->type_name("COLOR")
      ->capture_default_str();
}

/// The colour that such an option says; none for "auto".
/// @throws Exception for other words
inline std::optional<mv::LaserColor> parseLaserColor(std::string const& text) {
  if (text == "auto") {
    return std::nullopt;
  }
  mv::LaserColor color;
  char const* const names[] = {"blue", "green", "red"};
  for (std::size_t i = 0; i < 3; ++i) {
    if (text == names[i]) {
      color.weights[i] = 1;
    }
  }
  if (text == "brightest" || !color.isBrightest()) {
    return color;
  }
  char rest = 0;
  if (std::sscanf(text.c_str(), "%lf,%lf,%lf%c", &color.weights[0], &color.weights[1], &color.weights[2],
                  &rest) != 3) {
    throw Exception(
        "--laser-color is \"" + text +
            "\", but must be auto, brightest, blue, green, red or three numbers such as -0.5,1,-0.5",
        nullptr, 0, "laser");
  }
  color.check();
  return color;
}

} // namespace vorn::tools
