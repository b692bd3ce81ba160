// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/report/warning.hpp"

#include <iostream>
#include <mutex>
#include <utility>

namespace vorn::tools {

namespace {

std::mutex mutex;
std::vector<std::string> warnings;

} // namespace

void warn(std::string const& text) {
  std::lock_guard const lock(mutex);
  std::cerr << "vorn-mv: warning: " << text << '\n';
  warnings.push_back(text);
}

std::vector<std::string> takeWarnings() {
  std::lock_guard const lock(mutex);
  return std::exchange(warnings, {});
}

} // namespace vorn::tools
