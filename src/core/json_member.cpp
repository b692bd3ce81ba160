// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "core/json_member.hpp"

#include <utility>

namespace vorn {

namespace {

std::string messageOf(std::string const& place, std::string const& reason) {
  return (place.empty() ? "The document" : '"' + place + '"') + reason;
}

double numberOf(nlohmann::json const& json, char const* name, char const* context) {
  return jsonValue<double>(json, name, context);
}

std::string wholeText(double number) {
  return nlohmann::json(static_cast<std::int64_t>(number)).dump();
}

} // namespace

JsonRefusal::JsonRefusal(std::string place, std::string reason, char const* context)
    : Exception(messageOf(place, reason), nullptr, 0, context), place_(std::move(place)),
      reason_(std::move(reason)) {}

std::string wordsOf(nlohmann::json::exception const& e) {
  std::string const words = e.what();
  auto const end = words.find("] ");
  return words[0] == '[' && end != std::string::npos ? words.substr(end + 2) : words;
}

std::string briefly(nlohmann::json const& value) {
  constexpr std::size_t most = 40;
  if (value.is_array() || value.is_object()) {
    return value.is_array() ? "a list of " + std::to_string(value.size()) : "an object";
  }
  std::string const text = value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  return text.size() <= most ? text : text.substr(0, most) + "...";
}

void requireJson(bool isRight, nlohmann::json const& value, std::string const& wanted, char const* context) {
  if (!isRight) {
    throw JsonRefusal("", " holds " + briefly(value) + " in place of " + wanted, context);
  }
}

nlohmann::json const& jsonMember(nlohmann::json const& json, std::string const& name, char const* context) {
  requireJson(json.is_object(), json, "an object with \"" + name + '"', context);
  auto const member = json.find(name);
  if (member == json.end()) {
    throw JsonRefusal(name, " is missing", context);
  }
  return *member;
}

void readJsonObject(nlohmann::json const& json, std::string const& name, IJsonSerializable& object,
                    char const* context) {
  nlohmann::json const& member = jsonMember(json, name, context);
  atJsonPlace(name, context, [&] { object.read(member); });
}

namespace detail {

void requireNumbers(nlohmann::json const& json, Nulls nulls, char const* context) {
  requireJson(json.is_array(), json, "a list of numbers", context);
  for (std::size_t i = 0; i < json.size(); ++i) {
    if (!json[i].is_number() && !(json[i].is_null() && nulls == Nulls::NotANumber)) {
      atJsonIndex(i, context, [&] { requireJson(false, json[i], "a number", context); });
    }
  }
}

void requireMatrix(nlohmann::json const& json, char const* context) {
  double const rows = numberOf(json, "rows", context);
  double const cols = numberOf(json, "cols", context);
  static_cast<void>(jsonValue<std::string>(json, "dt", context));
  nlohmann::json const& data = jsonMember(json, "data", context);
  atJsonPlace("data", context, [&] {
    requireNumbers(data, Nulls::NotANumber, context);
    if (static_cast<double>(data.size()) != rows * cols) {
      throw JsonRefusal("",
                        " holds " + std::to_string(data.size()) + " numbers in place of " + wholeText(rows) +
                            " x " + wholeText(cols),
                        context);
    }
  });
}

} // namespace detail

} // namespace vorn
