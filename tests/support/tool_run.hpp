// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/tool.hpp"

namespace vorn::test {

struct ToolOutcome {
  int status;
  std::string output;
  std::string errors;
};

/// Runs the command line tool in this process.
inline ToolOutcome run(std::vector<std::string> const& arguments) {
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  int const status = tools::runTool(arguments);
  std::string const output = testing::internal::GetCapturedStdout();
  return {status, output, testing::internal::GetCapturedStderr()};
}

} // namespace vorn::test
