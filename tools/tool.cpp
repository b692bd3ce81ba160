// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/tool.hpp"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>

#include <CLI/CLI.hpp>
#include <opencv2/core/utility.hpp>

#include <vorn/core/observer.hpp>
#include <vorn/core/system.hpp>
#include <vorn/mv/core/library.hpp>

#include "core/nearest_word.hpp"
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

/// What a command line that was not understood may have meant; empty for no idea. Options are those of the
/// command named, if any.
std::string suggestion(CLI::App& program, std::vector<std::string> const& arguments) {
  CLI::App* command = &program;
  std::vector<std::string> commands;
  for (CLI::App const* known : program.get_subcommands({})) {
    commands.push_back(known->get_name());
  }
  for (std::string const& argument : arguments) {
    bool const isOption = argument.rfind("--", 0) == 0;
    if (command == &program && !isOption) {
      if (std::find(commands.begin(), commands.end(), argument) == commands.end()) {
        return nearestWord(argument, commands);
      }
      command = program.get_subcommand(argument);
    } else if (isOption) {
      std::vector<std::string> options;
      for (CLI::Option const* option : command->get_options()) {
        for (std::string const& name : option->get_lnames()) {
          options.push_back("--" + name);
        }
      }
      std::string const name = argument.substr(0, argument.find('='));
      if (std::find(options.begin(), options.end(), name) == options.end()) {
        return nearestWord(name, options);
      }
    }
  }
  return "";
}

/// As many threads as OPENCV_FOR_THREADS_NUM says: an OpenCV built with TBB reads it only when it is told to.
void takeThreadCount() {
  if (std::getenv("OPENCV_FOR_THREADS_NUM") != nullptr) {
    cv::setNumThreads(-1);
  }
}

} // namespace

int runTool(std::vector<std::string> arguments) {
  takeThreadCount();
  auto const program = makeProgram();
  mv::Library::start(false);
  System::setMessageSink([](std::string const& /*text*/) {}); // commands say themselves what they did
  // The parser takes the arguments last first.
  std::vector<std::string> const given = arguments;
  std::reverse(arguments.begin(), arguments.end());
  try {
    program->parse(std::move(arguments));
  } catch (CLI::ParseError const& e) {
    if (program->exit(e) == 0) {
      return 0;
    }
    if (std::string const meant = suggestion(*program, given); !meant.empty()) {
      std::cerr << "Did you mean \"" << meant << "\"?\n";
    }
    return wrongUsage;
  } catch (Cancelled const&) {
    std::cerr << "vorn-mv: interrupted\n";
    return interrupted;
  } catch (std::filesystem::filesystem_error const& e) {
    // Its own text is that of a function call.
    std::cerr << "vorn-mv: " << oneLine(e.path1().string()) << ": " << e.code().message() << '\n';
    return failed;
  } catch (std::exception const& e) {
    std::cerr << "vorn-mv: " << oneLine(e.what()) << '\n';
    return failed;
  }
  if (!std::cout.flush()) {
    std::cout.clear();
    std::cerr << "vorn-mv: Cannot write to standard output\n";
    return failed;
  }
  return 0;
}

} // namespace vorn::tools
