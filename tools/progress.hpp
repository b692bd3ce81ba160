// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace vorn::tools {

/// A progress bar on standard error, drawn only when that is a terminal.
class Progress {
public:
  /// @param what  what is being done, shown before the bar
  /// @param steps how many times `step` will be called
  Progress(std::string what, int steps);
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;
  /// Clears the line.
  ~Progress();

  /// One more step is done.
  void step();

private:
  void draw() const;

  std::string what_;
  int steps_;
  int done_ = 0;
  bool visible_;
};

} // namespace vorn::tools
