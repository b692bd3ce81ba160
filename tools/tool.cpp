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

/// The command that is named; null for none.
CLI::App* commandOf(CLI::App& program, std::vector<std::string> const& arguments) {
  auto const name = std::find_if(arguments.begin(), arguments.end(), [](std::string const& argument) {
    return argument.empty() || argument[0] != '-';
  });
  for (CLI::App* command : program.get_subcommands({})) {
    if (name != arguments.end() && command->get_name() == *name) {
      return command;
    }
  }
  return nullptr;
}

/// Refuses an option for the value of another: the parser would take "--overlay --json" for a folder of that
/// name.
/// @throws CLI::ArgumentMismatch
void requireValues(CLI::App& program, std::vector<std::string> const& arguments) {
  CLI::App* const command = commandOf(program, arguments);
  if (command == nullptr) {
    return;
  }
  for (std::size_t i = 0; i < arguments.size() && arguments[i] != "--"; ++i) {
    CLI::Option const* const option =
        arguments[i].rfind('-', 0) == 0 ? command->get_option_no_throw(arguments[i]) : nullptr;
    auto const needed = static_cast<std::size_t>(option == nullptr ? 0 : option->get_items_expected_min());
    for (std::size_t k = i + 1; k <= i + needed && k < arguments.size(); ++k) {
      std::string const& value = arguments[k];
      bool const isOption =
          value.size() > 1 && value[0] == '-' && command->get_option_no_throw(value) != nullptr;
      if (value.rfind("--", 0) == 0 || isOption) {
        throw CLI::ArgumentMismatch(arguments[i] + " needs a value, but " + value + " follows" +
                                    (needed == 1 && value.size() > 2
                                         ? " (" + arguments[i] + "=" + value + " if that is its value)"
                                         : ""));
      }
    }
    i += needed;
  }
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
    requireValues(*program, given);
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
