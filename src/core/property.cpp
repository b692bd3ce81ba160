// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/property.hpp>

#include <cmath>
#include <limits>
#include <ostream>
#include <utility>

#include <nlohmann/json.hpp>

#include <vorn/core/text.hpp>

#include "core/error.hpp"

namespace vorn {

namespace {

/// Why a value is refused; `Property::converted` adds whose value it is.
Exception refusal(Variant const& value, std::string const& wanted) {
  return error("\"" + value.toString() + "\" is not " + wanted, "Property");
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

std::int64_t toWhole(Variant const& value) {
  if (value.type() == Variant::Type::Enum) {
    throw refusal(value, "a whole number");
  }
  std::int64_t const whole = value.toInt64();
  if (static_cast<double>(whole) != value.toDouble()) { // a fraction, NaN, or beyond 64 bits
    throw refusal(value, "a whole number");
  }
  return whole;
}

int toWhole32(Variant const& value) {
  std::int64_t const whole = toWhole(value);
  if (whole < std::numeric_limits<int>::min() || whole > std::numeric_limits<int>::max()) {
    throw refusal(value, "a whole number of 32 bits");
  }
  return static_cast<int>(whole);
}

double toNumber(Variant const& value) {
  if (value.type() == Variant::Type::Enum || value.type() == Variant::Type::Bool) {
    throw refusal(value, "a number");
  }
  return value.toDouble();
}

bool toTruth(Variant const& value) {
  bool const isZeroOrOne = isNumber(value) && (value.toDouble() == 0.0 || value.toDouble() == 1.0);
  if (value.type() == Variant::Type::Bool || value.type() == Variant::Type::String || isZeroOrOne) {
    return value.toBool();
  }
  throw refusal(value, "true or false");
}

Variant toItem(Variant const& value, IEnum const& model) {
  std::unique_ptr<IEnum> item = model.clone();
  if (value.type() == Variant::Type::String) {
    item->setItem(value.toString());
  } else if (isNumber(value)) {
    item->setIndex(toWhole32(value));
  } else if (value.type() == Variant::Type::Enum && value.toEnum().getClassName() == model.getClassName()) {
    item->setIndex(value.toEnum().getIndex());
  } else {
    throw refusal(value, "an item of " + model.getClassName());
  }
  return *item;
}

Variant toType(Variant const& value, Variant const& model) {
  switch (model.type()) {
  case Variant::Type::Int:
    return toWhole32(value);
  case Variant::Type::Int64:
    return toWhole(value);
  case Variant::Type::Double:
    return toNumber(value);
  case Variant::Type::Bool:
    return toTruth(value);
  case Variant::Type::Enum:
    return toItem(value, model.toEnum());
  case Variant::Type::String:
    break;
  }
  return value.toString();
}

} // namespace

Property::Property(std::string name, Variant value)
    : name_(std::move(name)), value_(std::move(value)), default_(value_) {}

Property::Property(std::string name, Variant value, Variant const& min, Variant const& max)
    : Property(std::move(name), std::move(value)) {
  range_ = Range{converted(min), converted(max)};
  checkRange(value_);
}

std::string Property::label() const {
  return "Property \"" + name_ + "\"";
}

Variant const& Property::getMin() const {
  if (!range_) {
    throw error(label() + " has no range", "Property");
  }
  return range_->min;
}

Variant const& Property::getMax() const {
  if (!range_) {
    throw error(label() + " has no range", "Property");
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
    return toType(value, default_);
  } catch (Exception const& e) {
    throw error(label() + ": " + e.message(), "Property");
  }
}

void Property::checkRange(Variant const& value) const {
  if (!range_) {
    return;
  }
  double const number = value.toDouble();
  // Written so that NaN fails.
  if (!(number >= range_->min.toDouble() && number <= range_->max.toDouble())) {
    throw error(label() + ": " + value.toString() + " is not in [" + range_->min.toString() + ", " +
                    range_->max.toString() + "]",
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
    *this = Variant(json.get<std::int64_t>());
    break;
  case Kind::number_unsigned:
    if (json.get<std::uint64_t>() <= std::uint64_t{std::numeric_limits<std::int64_t>::max()}) {
      *this = Variant(json.get<std::int64_t>());
      break;
    }
    [[fallthrough]]; // as a signed number it would wrap around
  case Kind::number_float:
    *this = Variant(json.get<double>());
    break;
  case Kind::string:
    *this = Variant(json.get<std::string>());
    break;
  default:
    throw error(label() + ": JSON of type " + json.type_name() + " is no value of a property", "Property");
  }
}

void Property::write(nlohmann::json& json) const {
  switch (value_.type()) {
  case Variant::Type::Int:
  case Variant::Type::Int64:
    json = value_.toInt64();
    break;
  case Variant::Type::Double:
    if (std::isfinite(value_.toDouble())) {
      json = value_.toDouble();
    } else {
      json = value_.toString(); // as a number it would become null in a file
    }
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

namespace detail {

double quotient(double dividend, double divisor, bool areWhole) {
  double const quotient = dividend / divisor;
  return areWhole ? std::trunc(quotient) : quotient;
}

} // namespace detail

std::ostream& operator<<(std::ostream& stream, Property const& p) {
  return stream << p.getValue().toString();
}

} // namespace vorn
