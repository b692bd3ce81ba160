// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/property.hpp>

#include <cmath>
#include <limits>
#include <utility>

#include <nlohmann/json.hpp>

#include <vorn/core/text.hpp>

#include "core/error.hpp"

namespace vorn {

namespace {

std::string label(std::string const& name) {
  return "Property \"" + name + "\"";
}

Exception refusal(std::string const& name, Variant const& value, std::string const& wanted) {
  return error(label(name) + " takes " + wanted + ", not \"" + value.toString() + "\"", "Property");
}

bool isNumber(Variant const& value) {
  switch (value.type()) {
  case Variant::Type::Int:
  case Variant::Type::Int64:
  case Variant::Type::Double:
    return true;
  default:
    return false;
  }
}

Variant toWhole(std::string const& name, Variant const& value, bool wide) {
  if (value.type() == Variant::Type::Enum) {
    throw refusal(name, value, "a whole number");
  }
  std::int64_t const whole = value.toInt64();
  constexpr double exactLimit = 9007199254740992.0; // 2^53: beyond it a double cannot tell a fraction
  double const number = value.toDouble();
  bool const hasFraction = std::abs(number) < exactLimit && number != static_cast<double>(whole);
  if (hasFraction || !std::isfinite(number)) {
    throw refusal(name, value, "a whole number");
  }
  if (wide) {
    return whole;
  }
  if (whole < std::numeric_limits<int>::min() || whole > std::numeric_limits<int>::max()) {
    throw refusal(name, value, "a whole number of 32 bits");
  }
  return static_cast<int>(whole);
}

Variant toTruth(std::string const& name, Variant const& value) {
  bool const isZeroOrOne = isNumber(value) && (value.toDouble() == 0.0 || value.toDouble() == 1.0);
  if (value.type() == Variant::Type::Bool || value.type() == Variant::Type::String || isZeroOrOne) {
    return value.toBool();
  }
  throw refusal(name, value, "true or false");
}

Variant toItem(std::string const& name, Variant const& value, IEnum const& model) {
  std::unique_ptr<IEnum> item = model.clone();
  try {
    if (value.type() == Variant::Type::Enum) {
      if (value.toEnum().getClassName() != model.getClassName()) {
        throw refusal(name, value, "an item of " + model.getClassName());
      }
      item->setIndex(value.toEnum().getIndex());
    } else if (value.type() == Variant::Type::String) {
      item->setItem(value.toString());
    } else if (isNumber(value)) {
      item->setIndex(toWhole(name, value, false).toInt());
    } else {
      throw refusal(name, value, "an item of " + model.getClassName());
    }
  } catch (Exception const& e) {
    // The enum does not know whose value it is.
    bool const namesProperty = e.message().rfind(label(name), 0) == 0;
    throw namesProperty ? e : error(label(name) + ": " + e.message(), "Property");
  }
  return *item;
}

} // namespace

Property::Property(std::string name, Variant value)
    : name_(std::move(name)), value_(std::move(value)), default_(value_) {}

Property::Property(std::string name, Variant value, Variant const& min, Variant const& max)
    : Property(std::move(name), std::move(value)) {
  range_ = Range{converted(min), converted(max)};
  checkRange(value_);
}

Variant const& Property::getMin() const {
  if (!range_) {
    throw error(label(name_) + " has no range", "Property");
  }
  return range_->min;
}

Variant const& Property::getMax() const {
  if (!range_) {
    throw error(label(name_) + " has no range", "Property");
  }
  return range_->max;
}

Property& Property::operator=(Variant const& value) {
  Variant candidate = converted(value);
  checkRange(candidate);
  value_ = std::move(candidate);
  return *this;
}

Variant Property::converted(Variant const& value) const {
  try {
    switch (default_.type()) {
    case Variant::Type::Int:
      return toWhole(name_, value, false);
    case Variant::Type::Int64:
      return toWhole(name_, value, true);
    case Variant::Type::Double:
      if (value.type() == Variant::Type::Enum || value.type() == Variant::Type::Bool) {
        throw refusal(name_, value, "a number");
      }
      return value.toDouble();
    case Variant::Type::Bool:
      return toTruth(name_, value);
    case Variant::Type::Enum:
      return toItem(name_, value, default_.toEnum());
    case Variant::Type::String:
      return value.toString();
    }
  } catch (Exception const& e) {
    // A text that is no number: say which property refuses it.
    bool const namesProperty = e.message().rfind(label(name_), 0) == 0;
    throw namesProperty ? e : refusal(name_, value, "a number");
  }
  return value;
}

void Property::checkRange(Variant const& value) const {
  if (!range_) {
    return;
  }
  double const number = value.toDouble();
  // Written so that NaN fails.
  if (!(number >= range_->min.toDouble() && number <= range_->max.toDouble())) {
    throw error(label(name_) + " must lie in [" + range_->min.toString() + ", " + range_->max.toString() +
                    "], not at " + value.toString(),
                "Property");
  }
}

std::string const& Property::getClassName() const {
  static std::string const name = "vorn::Property";
  return name;
}

std::vector<std::string> const& Property::getInterfaces() const {
  static std::vector<std::string> const names{"vorn::IObject", "vorn::IJsonSerializable"};
  return names;
}

std::string Property::toString() const {
  return name_ + " = " + value_.toString();
}

void Property::read(nlohmann::json const& json) {
  using Kind = nlohmann::json::value_t;
  switch (json.type()) {
  case Kind::boolean:
    *this = Variant(json.get<bool>());
    break;
  case Kind::number_integer:
  case Kind::number_unsigned:
    *this = Variant(json.get<std::int64_t>());
    break;
  case Kind::number_float:
    *this = Variant(json.get<double>());
    break;
  case Kind::string:
    *this = Variant(json.get<std::string>());
    break;
  default:
    throw error(label(name_) + " takes a number, a truth value or a text, not " + json.type_name(),
                "Property");
  }
}

void Property::write(nlohmann::json& json) const {
  switch (value_.type()) {
  case Variant::Type::Int:
  case Variant::Type::Int64:
    json = value_.toInt64();
    break;
  case Variant::Type::Double:
    json = value_.toDouble();
    break;
  case Variant::Type::Bool:
    json = value_.toBool();
    break;
  case Variant::Type::Enum:
  case Variant::Type::String:
    json = value_.toString();
    break;
  }
}

} // namespace vorn
