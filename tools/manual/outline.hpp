// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>

namespace vorn::tools {

/// What a manual says of an option or a positional argument.
struct ArgumentOutline {
  std::vector<std::string> names;  ///< with their dashes; the one name of a positional argument
  std::vector<std::string> values; ///< the kinds of its values, as PATH or MM COUNT; none for a flag
  std::string help;
  std::vector<std::string> words; ///< what a shell offers as values, see `setWords`; none for anything
  std::vector<std::string> rules; ///< sentences: range, default, what it needs and excludes
  bool isRequired;
  bool mayRepeat;

  bool takesPath() const;
};

/// What a manual says of a command; of the program itself, with the name "vorn-mv".
struct CommandOutline {
  std::string name;
  std::string help;
  std::vector<ArgumentOutline> positionals;
  std::vector<ArgumentOutline> options;
};

/// The kind of value that names a file or a folder.
extern char const* const pathKind;

/// Reads a command's option table.
CommandOutline outlineOf(CLI::App const& command);

/// The outlines of a program's commands, in the order of its help text.
std::vector<CommandOutline> commandsOf(CLI::App const& program);

} // namespace vorn::tools
