// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <vorn/core/export.hpp>
#include <vorn/core/interfaces.hpp>
#include <vorn/core/registry.hpp>

namespace vorn {

/// Filters of one interface, which derives from `IObject` and `IJsonSerializable`, in the order in which they
/// are applied.
template <class Filter>
using FilterChain = std::vector<std::unique_ptr<Filter>>;

namespace detail {
/// Makes a filter of the class named, keeps it, and returns it to have its properties set.
using AddFilter = std::function<IJsonSerializable&(std::string const& className)>;

VORN_API void readFilterChain(nlohmann::json const& json, AddFilter const& add);
VORN_API void appendFilter(std::string const& className, IJsonSerializable const& filter,
                           nlohmann::json& chain);
VORN_API void clearFilterChain(nlohmann::json& json);
VORN_API void parseFilter(std::string const& text, AddFilter const& add);
} // namespace detail

/// The filters that a JSON array describes, each as {"class": "GaussianFilter", "properties": {"Radius": 3}}.
///
/// Class names are those that `registry` knows; properties that are not named have their defaults, and
/// "properties" may be left out.
/// @throws Exception that says which filter of the chain is wrong: an unknown class, property or member, or a
///         value that a property refuses
template <class Filter>
FilterChain<Filter> readFilterChain(nlohmann::json const& json, Registry<Filter> const& registry) {
  FilterChain<Filter> chain;
  detail::readFilterChain(json, [&](std::string const& className) -> IJsonSerializable& {
    return *chain.emplace_back(registry.create(className));
  });
  return chain;
}

/// Writes the chain as `readFilterChain` reads it, with full class names and all properties.
template <class Filter>
void writeFilterChain(FilterChain<Filter> const& chain, nlohmann::json& json) {
  detail::clearFilterChain(json);
  for (auto const& filter : chain) {
    detail::appendFilter(filter->getClassName(), *filter, json);
  }
}

/// The filter that a short text describes: a class name, then perhaps a colon and property values, as in
/// "Gaussian:Radius=3,SigmaX=1.2".
/// @throws Exception for an unknown class or property, or a value that a property refuses
template <class Filter>
std::unique_ptr<Filter> parseFilter(std::string const& text, Registry<Filter> const& registry) {
  std::unique_ptr<Filter> filter;
  detail::parseFilter(text, [&](std::string const& className) -> IJsonSerializable& {
    filter = registry.create(className);
    return *filter;
  });
  return filter;
}

} // namespace vorn
