// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "tools/progress.hpp"

namespace vorn::tools {

/// A progress bar that follows a folder being rendered: `sim::FolderOptions::progress`.
inline std::function<void(int, int)> followFolder(std::string const& what) {
  auto bar = std::make_shared<std::unique_ptr<Progress>>();
  return [bar, what](int /*done*/, int total) {
    if (*bar == nullptr) {
      *bar = std::make_unique<Progress>(what, total);
    }
    (*bar)->step();
  };
}

} // namespace vorn::tools
