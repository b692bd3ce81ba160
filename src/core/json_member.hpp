// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/interfaces.hpp>

/// Members of JSON documents, taken so that a refusal says which one it is about: "CameraModel.K.data[2]".
namespace vorn {

/// A refusal of a document, with the place in it. The message is `"place" reason`.
class JsonRefusal : public Exception {
public:
  /// @param place  empty for the whole document
  /// @param reason goes on after the place: " is missing"
  JsonRefusal(std::string place, std::string reason, char const* context);

  std::string const& place() const { return place_; }
  std::string const& reason() const { return reason_; }

private:
  std::string place_;
  std::string reason_;
};

/// The words of the JSON library without the name of its exception.
std::string wordsOf(nlohmann::json::exception const& e);

/// The value in the fewest words: long ones are cut.
std::string briefly(nlohmann::json const& value);

/// @throws JsonRefusal " holds ... in place of `wanted`" unless `isRight`
void requireJson(bool isRight, nlohmann::json const& value, std::string const& wanted, char const* context);

/// The member of an object.
/// @throws JsonRefusal when `json` is no object or has no such member
nlohmann::json const& jsonMember(nlohmann::json const& json, std::string const& name, char const* context);

/// Runs `body`, whose refusals are then about what lies at `place`.
template <class Body>
auto atJsonPlace(std::string const& place, char const* context, Body const& body) {
  try {
    return body();
  } catch (JsonRefusal const& e) {
    bool const isIndex = !e.place().empty() && e.place()[0] == '[';
    std::string const separator = e.place().empty() || isIndex ? "" : ".";
    throw JsonRefusal(place + separator + e.place(), e.reason(), e.file().c_str());
  } catch (Exception const& e) {
    throw JsonRefusal(place, ": " + e.message(), e.file().empty() ? context : e.file().c_str());
  } catch (nlohmann::json::exception const& e) {
    throw JsonRefusal(place, ": " + wordsOf(e), context);
  }
}

/// The same for an element of a list.
template <class Body>
auto atJsonIndex(std::size_t index, char const* context, Body const& body) {
  return atJsonPlace('[' + std::to_string(index) + ']', context, body);
}

namespace detail {

/// @throws JsonRefusal unless `json` is a matrix of numbers whose members agree
void requireMatrix(nlohmann::json const& json, char const* context);
/// What a null is in a list of numbers.
enum class Nulls { NotANumber, Refused };
/// @throws JsonRefusal unless `json` is a list of numbers
void requireNumbers(nlohmann::json const& json, Nulls nulls, char const* context);

template <class T>
struct IsVector : std::false_type {};
template <class T>
struct IsVector<std::vector<T>> : std::true_type {};

/// Matrices are objects in JSON; vectors, whose type says that they are one column, are lists of numbers, as
/// points and sizes are.
template <class T, class = void>
struct IsMatrix : std::false_type {};
template <class T>
struct IsMatrix<T, std::void_t<decltype(T::cols)>> {
  static constexpr bool isTall() {
    if constexpr (std::is_enum_v<decltype(T::cols)>) {
      return static_cast<int>(T::cols) == 1;
    } else {
      return false;
    }
  }
  static constexpr bool value = !isTall();
};

} // namespace detail

/// The value of what a member holds.
/// @throws JsonRefusal with the place of the first part that is not of its kind
template <class T>
T jsonAs(nlohmann::json const& json, char const* context) {
  if constexpr (std::is_same_v<T, bool>) {
    requireJson(json.is_boolean(), json, "true or false", context);
  } else if constexpr (std::is_arithmetic_v<T>) {
    requireJson(json.is_number(), json, "a number", context);
  } else if constexpr (std::is_same_v<T, std::string>) {
    requireJson(json.is_string(), json, "a text", context);
  } else if constexpr (detail::IsVector<T>::value) {
    requireJson(json.is_array(), json, "a list", context);
    T values;
    values.reserve(json.size());
    for (std::size_t i = 0; i < json.size(); ++i) {
      values.push_back(
          atJsonIndex(i, context, [&] { return jsonAs<typename T::value_type>(json[i], context); }));
    }
    return values;
  } else if constexpr (detail::IsMatrix<T>::value) {
    detail::requireMatrix(json, context);
  } else {
    constexpr bool hasNan = std::is_floating_point_v<typename T::value_type>;
    detail::requireNumbers(json, hasNan ? detail::Nulls::NotANumber : detail::Nulls::Refused, context);
  }
  return json.get<T>();
}

/// The value of the member `name`.
/// @throws JsonRefusal when it is missing or not of its kind
template <class T>
T jsonValue(nlohmann::json const& json, std::string const& name, char const* context) {
  nlohmann::json const& member = jsonMember(json, name, context);
  return atJsonPlace(name, context, [&] { return jsonAs<T>(member, context); });
}

/// The same into a variable, whose type it takes.
template <class T>
void readJson(nlohmann::json const& json, std::string const& name, T& value, char const* context) {
  value = jsonValue<T>(json, name, context);
}

/// Reads an object from the member `name`.
/// @throws JsonRefusal when it is missing or refused
void readJsonObject(nlohmann::json const& json, std::string const& name, IJsonSerializable& object,
                    char const* context);

} // namespace vorn
