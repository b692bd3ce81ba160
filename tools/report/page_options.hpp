// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

#include <CLI/CLI.hpp>

namespace vorn::tools {

/// Whether a command writes a page, and how large. See `Report::wantPage`.
struct PageOptions {
  std::string path;                ///< empty: no page
  std::size_t mostPoints = 500000; ///< shown of each cloud

  /// Adds --html and --html-points.
  void addTo(CLI::App& command);
};

} // namespace vorn::tools
