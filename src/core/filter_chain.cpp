// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/filter_chain.hpp>

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/text.hpp>

#include "core/error.hpp"
#include "core/json_member.hpp"

namespace vorn::detail {

namespace {

constexpr char const* classMember = "class";
constexpr char const* propertiesMember = "properties";

/// Unlike `read` of a single object, refuses a member that the filter would not write itself: in a text
/// written by hand it is a misspelt property.
void readProperties(std::string const& className, IJsonSerializable& filter,
                    nlohmann::json const& properties) {
  filter.read(properties);
  nlohmann::json known;
  filter.write(known);
  for (auto const& member : properties.items()) {
    if (!known.contains(member.key())) {
      throw error("There is no property \"" + member.key() + "\"", className.c_str());
    }
  }
}

void readFilter(nlohmann::json const& json, AddFilter const& add) {
  if (!json.is_object() || !json.contains(classMember) || !json[classMember].is_string()) {
    throw error("A filter is an object with its \"class\" and its \"properties\"", "readFilterChain");
  }
  for (auto const& member : json.items()) {
    if (member.key() != classMember && member.key() != propertiesMember) {
      throw error("Unknown member \"" + member.key() + "\"", "readFilterChain");
    }
  }
  auto const className = json[classMember].get<std::string>();
  IJsonSerializable& filter = add(className);
  if (json.contains(propertiesMember)) {
    readProperties(className, filter, json[propertiesMember]);
  }
}

} // namespace

void readFilterChain(nlohmann::json const& json, AddFilter const& add) {
  if (!json.is_array()) {
    throw error(std::string("A filter chain is a JSON array, not ") + json.type_name(), "readFilterChain");
  }
  for (std::size_t i = 0; i < json.size(); ++i) {
    auto const fail = [i](std::string const& reason) {
      throw error("Filter " + std::to_string(i + 1) + " of the chain: " + reason, "readFilterChain");
    };
    try {
      readFilter(json[i], add);
    } catch (Exception const& e) {
      fail(e.message());
    } catch (nlohmann::json::exception const& e) { // from what a filter keeps besides its properties
      fail(wordsOf(e));
    }
  }
}

void clearFilterChain(nlohmann::json& json) {
  json = nlohmann::json::array();
}

void appendFilter(std::string const& className, IJsonSerializable const& filter, nlohmann::json& chain) {
  nlohmann::json properties;
  filter.write(properties);
  chain.push_back({{classMember, className}, {propertiesMember, std::move(properties)}});
}

void parseFilter(std::string const& text, AddFilter const& add) {
  // A full class name has colons of its own: the one that ends it stands last before the first value.
  std::size_t const equals = text.find('=');
  std::size_t const colon = equals == std::string::npos ? equals : text.rfind(':', equals);
  nlohmann::json properties = nlohmann::json::object();
  if (equals != std::string::npos) {
    if (colon == std::string::npos) {
      throw error("\"" + text + "\" lacks the colon between class and properties", "parseFilter");
    }
    for (std::string const& assignment : split(std::string_view(text).substr(colon + 1), ',')) {
      std::size_t const middle = assignment.find('=');
      if (middle == std::string::npos) {
        throw error("\"" + assignment + "\" is not NAME=VALUE", "parseFilter");
      }
      properties[assignment.substr(0, middle)] = assignment.substr(middle + 1);
    }
  }
  std::string const className = text.substr(0, colon);
  readProperties(className, add(className), properties);
}

} // namespace vorn::detail
