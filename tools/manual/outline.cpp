// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/manual/outline.hpp"

#include <algorithm>
#include <set>
#include <sstream>

#include "tools/commands/option_words.hpp"

namespace vorn::tools {

char const* const pathKind = "PATH";

namespace {

std::vector<std::string> dashed(CLI::Option const& option) {
  std::vector<std::string> names;
  for (std::string const& name : option.get_snames()) {
    names.push_back("-" + name);
  }
  for (std::string const& name : option.get_lnames()) {
    names.push_back("--" + name);
  }
  return names;
}

/// "Excludes --map, --xyz." In the order of their names, since the parser keeps a set of addresses.
void addRelation(std::vector<std::string>& rules, std::string const& relation,
                 std::set<CLI::Option*> const& others) {
  std::set<std::string> names;
  for (CLI::Option const* other : others) {
    names.insert(other->get_name());
  }
  if (names.empty()) {
    return;
  }
  std::string text;
  for (std::string const& name : names) {
    text += (text.empty() ? " " : ", ") + name.substr(0, name.find('{'));
  }
  rules.push_back(relation + text + ".");
}

/// The parser describes a range as "INT in [-30 - -1]".
std::string rangeRule(std::string const& constraint) {
  std::size_t const opening = constraint.find(" in [");
  std::size_t const dash = constraint.rfind(" - ");
  if (opening == std::string::npos || dash == std::string::npos || constraint.back() != ']') {
    return constraint + ".";
  }
  std::size_t const least = opening + 5;
  return "From " + constraint.substr(least, dash - least) + " to " +
         constraint.substr(dash + 3, constraint.size() - dash - 4) + ".";
}

/// The parser describes a choice of words as "{circles,staggered,chessboard}".
std::vector<std::string> choices(std::string const& constraint) {
  std::vector<std::string> words;
  if (constraint.size() > 2 && constraint.front() == '{' && constraint.back() == '}') {
    std::istringstream list(constraint.substr(1, constraint.size() - 2));
    for (std::string word; std::getline(list, word, ',');) {
      words.push_back(word);
    }
  }
  return words;
}

ArgumentOutline argumentOf(CLI::Option const& option) {
  ArgumentOutline outline{};
  outline.names = option.nonpositional() ? dashed(option) : std::vector{option.get_name(true)};
  outline.help = option.get_description();
  outline.isRequired = option.get_required();
  outline.mayRepeat = option.get_items_expected_max() >= CLI::detail::expected_max_vector_size;

  // The kinds of the values, then a colon and a description of each check.
  std::string const type = option.get_type_name();
  std::size_t const colon = type.find(':');
  if (option.get_items_expected_max() > 0) {
    std::istringstream kinds(type.substr(0, colon));
    for (std::string kind; kinds >> kind;) {
      outline.values.push_back(kind == "TEXT" ? pathKind : kind);
    }
    outline.words = wordsOf(option);
    if (colon != std::string::npos) {
      if (outline.words.empty()) {
        outline.words = choices(type.substr(colon + 1));
      }
      outline.rules.push_back(rangeRule(type.substr(colon + 1)));
    }
    if (!option.get_default_str().empty()) {
      outline.rules.push_back("Default: " + option.get_default_str() + ".");
    }
  }
  addRelation(outline.rules, "Needs", option.get_needs());
  addRelation(outline.rules, "Excludes", option.get_excludes());
  return outline;
}

} // namespace

bool ArgumentOutline::takesPath() const {
  return std::find(values.begin(), values.end(), pathKind) != values.end();
}

CommandOutline outlineOf(CLI::App const& command) {
  CommandOutline outline{command.get_name(), command.get_description(), {}, {}};
  for (CLI::Option const* option : command.get_options()) {
    if (!option->get_group().empty()) {
      (option->nonpositional() ? outline.options : outline.positionals).push_back(argumentOf(*option));
    }
  }
  return outline;
}

std::vector<CommandOutline> commandsOf(CLI::App const& program) {
  std::vector<CommandOutline> commands;
  for (CLI::App const* command : program.get_subcommands([](CLI::App const*) { return true; })) {
    commands.push_back(outlineOf(*command));
  }
  return commands;
}

} // namespace vorn::tools
