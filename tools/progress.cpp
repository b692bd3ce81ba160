// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/progress.hpp"

#include <algorithm>
#include <iostream>
#include <utility>

#include <unistd.h>

namespace vorn::tools {

Progress::Progress(std::string what, int steps)
    : what_(std::move(what)), steps_(std::max(steps, 1)), visible_(isatty(STDERR_FILENO) != 0) {
  draw();
}

Progress::~Progress() {
  if (visible_) {
    std::cerr << "\r\033[K" << std::flush;
  }
}

void Progress::step() {
  done_ = std::min(done_ + 1, steps_);
  draw();
}

void Progress::draw() const {
  if (!visible_) {
    return;
  }
  constexpr int width = 30;
  auto const filled = static_cast<std::size_t>(width * done_ / steps_);
  std::cerr << '\r' << what_ << " [" << std::string(filled, '#') << std::string(width - filled, ' ') << "] "
            << done_ << '/' << steps_ << "\033[K" << std::flush;
}

} // namespace vorn::tools
