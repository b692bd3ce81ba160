// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include <vorn/core/observer.hpp>

namespace vorn::tools {

/// The observer of the tool's long work: a bar on standard error, drawn only when that is a terminal, and a
/// stop when the user interrupts (Ctrl-C). As long as one lives the first interruption stops the work, a
/// second one ends the program at once.
class ProgressBar : public Observer {
public:
  ProgressBar();
  ProgressBar(ProgressBar const&) = delete;
  ProgressBar& operator=(ProgressBar const&) = delete;
  /// Clears the line.
  ~ProgressBar() override;

  bool onProgress(std::string_view stage, double fraction) override;

private:
  bool isVisible_;
  std::string drawn_;
};

/// Runs `job(bar)` under a bar that is gone before anything else is printed.
template <class Job>
auto watched(Job const& job) {
  ProgressBar bar;
  return job(&bar);
}

/// For work that counts its steps: tells an observer that `done` of `total` are done.
/// @param observer none when null
/// @throws Cancelled when it stops the work
void tell(Observer* observer, std::string_view stage, std::size_t done, std::size_t total);

/// A bar for a folder being rendered: `sim::FolderOptions::progress`.
std::function<void(int, int)> followFolder(std::string const& stage);

} // namespace vorn::tools
