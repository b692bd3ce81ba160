// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
// Writes the manual page and the shells' completion of vorn-mv from its option tables, when the tool is
// built.
#include <exception>
#include <fstream>
#include <iostream>

#include "tools/commands/commands.hpp"
#include "tools/manual/writers.hpp"

int main(int argc, char** argv) try {
  if (argc != 2) {
    std::cerr << "Usage: vorn_manual FOLDER\n";
    return 2;
  }
  std::string const folder = std::string(argv[1]) + "/";
  auto const program = vorn::tools::makeProgram();
  std::ofstream page(folder + "vorn-mv.1");
  vorn::tools::writeManualPage(page, *program, VORN_MV_VERSION);
  std::ofstream bash(folder + "vorn-mv.bash");
  vorn::tools::writeBashCompletion(bash, *program);
  std::ofstream zsh(folder + "_vorn-mv");
  vorn::tools::writeZshCompletion(zsh, *program);
  if (!page.flush() || !bash.flush() || !zsh.flush()) {
    std::cerr << "Cannot write to " << folder << '\n';
    return 1;
  }
  return 0;
} catch (std::exception const& e) {
  std::cerr << "vorn_manual: " << e.what() << '\n';
  return 1;
}
