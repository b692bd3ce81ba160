// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/tool.hpp"

int main(int argc, char** argv) {
  return vorn::tools::runTool({argv + 1, argv + argc});
}
