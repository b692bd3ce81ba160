// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/tool.hpp"

#include <algorithm>
#include <exception>
#include <iostream>

#include <CLI/CLI.hpp>

#include <vorn/core/observer.hpp>
#include <vorn/core/system.hpp>
#include <vorn/mv/core/library.hpp>

#include "tools/commands/commands.hpp"

namespace vorn::tools {

namespace {

constexpr int failed = 1;
constexpr int wrongUsage = 2;
/// 128 and the number of the signal SIGINT, as shells have it.
constexpr int interrupted = 130;

/// An error's text on one line, as scripts expect it.
std::string oneLine(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

} // namespace

int runTool(std::vector<std::string> arguments) {
  auto const program = makeProgram();
  mv::Library::start(false);
  System::setMessageSink([](std::string const& /*text*/) {}); // commands say themselves what they did
  // The parser takes the arguments last first.
  std::reverse(arguments.begin(), arguments.end());
  try {
    program->parse(std::move(arguments));
  } catch (CLI::ParseError const& e) {
    return program->exit(e) == 0 ? 0 : wrongUsage;
  } catch (Cancelled const&) {
    std::cerr << "vorn-mv: interrupted\n";
    return interrupted;
  } catch (std::exception const& e) {
    std::cerr << "vorn-mv: " << oneLine(e.what()) << '\n';
    return failed;
  }
  return 0;
}

} // namespace vorn::tools
