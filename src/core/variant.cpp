// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/variant.hpp>

#include <charconv>
#include <cmath>
#include <limits>
#include <optional>

#include <vorn/core/text.hpp>

#include "core/error.hpp"

namespace vorn {

namespace {

double parsed(std::string const& text) {
  std::string const trimmed = removeSpaces(text, false);
  double value = 0;
  char const* const end = trimmed.data() + trimmed.size();
  auto const result = std::from_chars(trimmed.data(), end, value);
  if (result.ec != std::errc() || result.ptr != end) {
    throw error("\"" + text + "\" is not a number", "Variant");
  }
  return value;
}

/// A whole number in text, exact beyond what a double holds.
std::optional<std::int64_t> parsedWhole(std::string const& text) {
  std::string const trimmed = removeSpaces(text, false);
  std::int64_t value = 0;
  char const* const end = trimmed.data() + trimmed.size();
  auto const result = std::from_chars(trimmed.data(), end, value);
  return result.ec == std::errc() && result.ptr == end ? std::optional(value) : std::nullopt;
}

std::int64_t truncated(double value) {
  constexpr double limit = 9223372036854775808.0; // 2^63, the first value that does not fit
  if (std::isnan(value)) {
    return 0;
  }
  if (value >= limit) {
    return std::numeric_limits<std::int64_t>::max();
  }
  return value < -limit ? std::numeric_limits<std::int64_t>::min() : static_cast<std::int64_t>(value);
}

struct ToInt64 {
  std::int64_t operator()(int value) const { return value; }
  std::int64_t operator()(std::int64_t value) const { return value; }
  std::int64_t operator()(double value) const { return truncated(value); }
  std::int64_t operator()(bool value) const { return value ? 1 : 0; }
  std::int64_t operator()(std::shared_ptr<IEnum const> const& value) const { return value->getIndex(); }
  std::int64_t operator()(std::string const& value) const {
    auto const whole = parsedWhole(value);
    return whole ? *whole : truncated(parsed(value));
  }
};

struct ToDouble {
  double operator()(double value) const { return value; }
  double operator()(std::string const& value) const { return parsed(value); }
  template <class T>
  double operator()(T const& value) const {
    return static_cast<double>(ToInt64()(value));
  }
};

struct ToBool {
  bool operator()(double value) const { return value != 0.0; }
  bool operator()(std::string const& value) const {
    std::string const trimmed = removeSpaces(value, false);
    if (trimmed == "true" || trimmed == "false") {
      return trimmed == "true";
    }
    return parsed(value) != 0.0;
  }
  template <class T>
  bool operator()(T const& value) const {
    return ToInt64()(value) != 0;
  }
};

struct ToText {
  std::string operator()(double value) const { return vorn::toString(value); }
  std::string operator()(bool value) const { return value ? "true" : "false"; }
  std::string operator()(std::shared_ptr<IEnum const> const& value) const { return value->toString(); }
  std::string operator()(std::string const& value) const { return value; }
  template <class T>
  std::string operator()(T const& value) const {
    return std::to_string(value);
  }
};

} // namespace

Variant::Variant(IEnum const& value) : value_(std::shared_ptr<IEnum const>(value.clone())) {}

int Variant::toInt() const {
  std::int64_t const value = toInt64();
  constexpr std::int64_t least = std::numeric_limits<int>::min();
  constexpr std::int64_t greatest = std::numeric_limits<int>::max();
  return static_cast<int>(value < least ? least : value > greatest ? greatest : value);
}

std::int64_t Variant::toInt64() const {
  return std::visit(ToInt64(), value_);
}

float Variant::toFloat() const {
  return static_cast<float>(toDouble());
}

double Variant::toDouble() const {
  return std::visit(ToDouble(), value_);
}

bool Variant::toBool() const {
  return std::visit(ToBool(), value_);
}

std::string Variant::toString() const {
  return std::visit(ToText(), value_);
}

IEnum const& Variant::toEnum() const {
  auto const* value = std::get_if<std::shared_ptr<IEnum const>>(&value_);
  if (value == nullptr) {
    throw error("\"" + toString() + "\" is not an enum", "Variant");
  }
  return **value;
}

bool operator==(Variant const& a, Variant const& b) {
  if (a.type() == Variant::Type::Enum && b.type() == Variant::Type::Enum) {
    return a.toEnum().getClassName() == b.toEnum().getClassName() &&
           a.toEnum().getIndex() == b.toEnum().getIndex();
  }
  return a.value_ == b.value_;
}

} // namespace vorn
