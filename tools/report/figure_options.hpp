// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <utility>

#include <CLI/CLI.hpp>

#include <vorn/mv/measure/amat.hpp>

namespace vorn::tools {

/// How the pictures of a command look.
struct FigureOptions {
  bool isLight = false; ///< light ground, for print
  std::optional<std::pair<double, double>>
      range; ///< what the ends of the colours stand for; else what is there

  /// Adds --light.
  void addLight(CLI::App& command);
  /// Adds --range.
  /// @param what the colours stand for, such as "depths in mm"
  CLI::Option* addRange(CLI::App& command, char const* what);
  /// @throws Exception when the range is none
  void check() const;

  mv::Ground ground() const { return isLight ? mv::Ground::Light : mv::Ground::Dark; }
  mv::DrawSettings drawSettings() const;
};

} // namespace vorn::tools
