// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/enum.hpp>

#include <algorithm>

#include <nlohmann/json.hpp>

#include <vorn/core/text.hpp>
#include <vorn/core/variant.hpp>

#include "core/error.hpp"
#include "core/json_member.hpp"

namespace vorn {

namespace {

std::string joined(std::vector<std::string> const& names) {
  std::string text;
  for (auto const& name : names) {
    text += (text.empty() ? "" : ", ") + name;
  }
  return text;
}

} // namespace

IEnum::~IEnum() = default;

void IEnum::setItem(std::string const& name) {
  auto const& items = getItems();
  auto const item = std::find(items.begin(), items.end(), name);
  if (item == items.end()) {
    throw error("\"" + name + "\" is none of " + joined(items), getClassName().c_str());
  }
  setIndex(static_cast<int>(item - items.begin()));
}

std::string IEnum::toString() const {
  return getItems().at(static_cast<std::size_t>(getIndex()));
}

std::vector<std::string> const& IEnum::getInterfaces() const {
  static std::vector<std::string> const names{"vorn::IObject", "vorn::IJsonSerializable"};
  return names;
}

void IEnum::read(nlohmann::json const& json) {
  if (json.is_number_integer()) {
    setIndex(Variant(json.get<double>()).toInt()); // clamped where `get<int>` would wrap around
  } else {
    setItem(jsonAs<std::string>(json, getClassName().c_str()));
  }
}

void IEnum::write(nlohmann::json& json) const {
  json = toString();
}

namespace detail {

std::vector<std::string> enumItems(char const* list) {
  return split(removeSpaces(list, true), ',');
}

void checkEnumIndex(int index, std::vector<std::string> const& items, std::string const& className) {
  if (index < 0 || index >= static_cast<int>(items.size())) {
    throw error("There is no item " + std::to_string(index) + "; the items 0 to " +
                    std::to_string(items.size() - 1) + " are " + joined(items),
                className.c_str());
  }
}

void checkEnumClass(IEnum const& value, IEnum const& wanted) {
  if (value.getClassName() != wanted.getClassName()) {
    throw error("\"" + value.toString() + "\" is an item of " + value.getClassName() + ", not of " +
                    wanted.getClassName(),
                "Property");
  }
}

} // namespace detail
} // namespace vorn
