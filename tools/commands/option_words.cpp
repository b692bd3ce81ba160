// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/option_words.hpp"

#include <map>
#include <utility>

#include <CLI/App.hpp>

namespace vorn::tools {

namespace {

/// The parser's options take no data of ours. They live as long as the program.
std::map<CLI::Option const*, std::vector<std::string>>& wordsByOption() {
  static std::map<CLI::Option const*, std::vector<std::string>> words;
  return words;
}

} // namespace

void setWords(CLI::Option& option, std::vector<std::string> words) {
  wordsByOption()[&option] = std::move(words);
}

std::vector<std::string> wordsOf(CLI::Option const& option) {
  auto const found = wordsByOption().find(&option);
  return found == wordsByOption().end() ? std::vector<std::string>() : found->second;
}

std::vector<std::string> propertyWords(IPropertySet const& object, std::string const& prefix) {
  std::vector<std::string> words;
  for (Property const* property : object.getProperties()) {
    std::string const start = prefix + property->getName() + "=";
    words.push_back(start);
    Variant const& standard = property->getDefault();
    if (standard.type() == Variant::Type::Bool) {
      words.push_back(start + "true");
      words.push_back(start + "false");
    } else if (standard.type() == Variant::Type::Enum) {
      for (std::string const& item : standard.toEnum().getItems()) {
        words.push_back(start + item);
      }
    }
  }
  return words;
}

} // namespace vorn::tools
