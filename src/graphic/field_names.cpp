// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/field_names.hpp"

#include <algorithm>

#include "core/error.hpp"
#include "graphic/line_fields.hpp"

namespace vorn::graphic {

std::vector<std::string> fileFieldNames(GraphicObject const& object) {
  std::vector<std::string> names;
  for (auto const& field : object.fields()) {
    std::string name = field.first;
    if (name.empty()) {
      throw error("A field has no name", "fields");
    }
    std::replace_if(
        name.begin(), name.end(),
        [](char character) {
          auto const code = static_cast<unsigned char>(character);
          return code <= ' ' || code == 0x7F;
        },
        '_');
    if (std::find(names.begin(), names.end(), name) != names.end()) {
      throw error("Two fields would have the name " + quoted(name) + " in a file", "fields");
    }
    names.push_back(std::move(name));
  }
  return names;
}

std::vector<std::string> fieldNamesOf(std::vector<std::string> const& names) {
  auto const isMarked = [](std::string const& name) {
    return name.size() > fieldPrefix.size() && name.compare(0, fieldPrefix.size(), fieldPrefix) == 0;
  };
  auto const has = [](std::vector<std::string> const& list, std::string const& name) {
    return std::find(list.begin(), list.end(), name) != list.end();
  };
  std::vector<std::string> result;
  for (std::string const& name : names) {
    std::string const rest = isMarked(name) ? name.substr(fieldPrefix.size()) : name;
    bool const isTaken = isMarked(name) && !isMarked(rest) && has(names, rest);
    result.push_back(isTaken ? name : rest);
    while (std::count(result.begin(), result.end(), result.back()) > 1) {
      result.back() += '_'; // a plain name, and one marked once and twice
    }
  }
  return result;
}

} // namespace vorn::graphic
