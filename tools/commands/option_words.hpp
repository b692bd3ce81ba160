// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <CLI/Option.hpp>

#include <vorn/core/property_set.hpp>
#include <vorn/core/registry.hpp>

namespace vorn::tools {

/// Sets what a shell offers as an option's value.
///
/// A word is a whole value, or as much as there is a choice of: "MinDotArea=", and with its values
/// "ScannerType=Vertical"; "Gaussian", and with its properties "Gaussian:Radius=". Values are offered only
/// where "=" is typed, properties only behind ":", and again behind each comma.
void setWords(CLI::Option& option, std::vector<std::string> words);

/// What `setWords` has set; none for other options.
std::vector<std::string> wordsOf(CLI::Option const& option);

/// The words for an object's properties, each behind `prefix`.
std::vector<std::string> propertyWords(IPropertySet const& object, std::string const& prefix = "");

/// The words for a filter in the form "Class:Property=value,...".
/// @param registry the filters that may be named
template <class Filter>
std::vector<std::string> filterWords(Registry<Filter> const& registry) {
  std::vector<std::string> words;
  for (std::string const& name : registry.names()) {
    // As people write it: without namespace, and without the word that all end in.
    std::string const className = name.substr(name.rfind(':') + 1);
    std::string const brief = className.substr(0, className.rfind("Filter"));
    words.push_back(brief);
    std::vector<std::string> const properties = propertyWords(*registry.create(name), brief + ":");
    words.insert(words.end(), properties.begin(), properties.end());
  }
  return words;
}

} // namespace vorn::tools
