// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <iostream>
#include <sstream>

namespace vorn::tools {

/// Keeps the progress messages that the library writes to standard output from mixing with a command's own,
/// as long as the object lives.
class MutedOutput {
public:
  MutedOutput() : shown_(std::cout.rdbuf(swallowed_.rdbuf())) {}
  MutedOutput(MutedOutput const&) = delete;
  MutedOutput& operator=(MutedOutput const&) = delete;
  ~MutedOutput() { std::cout.rdbuf(shown_); }

private:
  std::ostringstream swallowed_;
  std::streambuf* shown_;
};

} // namespace vorn::tools
