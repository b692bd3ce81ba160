// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/progress.hpp"

#include <cmath>
#include <csignal>
#include <iostream>
#include <memory>

#include <unistd.h>

namespace vorn::tools {

namespace {

using Handler = void (*)(int);

volatile std::sig_atomic_t isInterrupted = 0;
/// Bars that live, and what an interruption did before the first of them.
int bars = 0;
Handler outside = SIG_DFL;

void interrupt(int signal) {
  isInterrupted = 1;
  std::signal(signal, SIG_DFL);
}

} // namespace

ProgressBar::ProgressBar() : isVisible_(isatty(STDERR_FILENO) != 0) {
  if (bars++ == 0) {
    isInterrupted = 0;
    outside = std::signal(SIGINT, interrupt);
    if (outside == SIG_IGN) { // as in a job that a shell script started in the background
      std::signal(SIGINT, SIG_IGN);
    }
  }
}

ProgressBar::~ProgressBar() {
  if (--bars == 0) {
    std::signal(SIGINT, outside);
  }
  if (!drawn_.empty()) {
    std::cerr << "\r\033[K" << std::flush;
  }
}

bool ProgressBar::onProgress(std::string_view stage, double fraction) {
  if (isVisible_) {
    constexpr int width = 30;
    auto const filled = static_cast<std::size_t>(width * fraction);
    std::string const line = std::string(filled, '#') + std::string(width - filled, ' ') + "] " +
                             std::to_string(std::lround(100.0 * fraction)) + " % " + std::string(stage);
    if (line != drawn_) {
      drawn_ = line;
      std::cerr << "\r[" << line << "\033[K" << std::flush;
    }
  }
  return isInterrupted == 0;
}

void tell(Observer* observer, std::string_view stage, std::size_t done, std::size_t total) {
  double const share = total == 0 ? 1.0 : static_cast<double>(done) / static_cast<double>(total);
  if (observer != nullptr && !observer->onProgress(stage, share)) {
    throw Cancelled(stage);
  }
}

std::function<void(int, int)> followFolder(std::string const& stage) {
  auto const bar = std::make_shared<ProgressBar>();
  return [bar, stage](int done, int total) {
    tell(bar.get(), stage, static_cast<std::size_t>(done), static_cast<std::size_t>(total));
  };
}

} // namespace vorn::tools
