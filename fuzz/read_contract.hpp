// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>

#include "require.hpp"

namespace vorn::fuzz {

/// The JSON text that an object writes.
template <class Object>
std::string textOf(Object const& object) {
  nlohmann::json json;
  object.write(json);
  return json.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
}

/// Reads a document into an object. A document that is refused must leave the object as it was; one that is
/// taken must be written in a form that reads to the same object.
/// @return whether it was taken
template <class Object>
bool tryRead(Object& object, nlohmann::json const& document) {
  std::string const before = textOf(object);
  try {
    object.read(document);
  } catch (Exception const&) {
    require(textOf(object) == before, "a failed read changes nothing");
    return false;
  } catch (nlohmann::json::exception const&) {
    require(textOf(object) == before, "a failed read changes nothing");
    return false;
  }
  std::string const text = textOf(object);
  Object again;
  again.read(nlohmann::json::parse(text));
  require(textOf(again) == text, "what is written reads to the same");
  return true;
}

} // namespace vorn::fuzz
