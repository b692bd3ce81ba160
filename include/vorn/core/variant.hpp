// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <variant>

#include <vorn/core/enum.hpp>
#include <vorn/core/export.hpp>

namespace vorn {

/// A value with its type: a whole number, a floating-point number, a truth value, an enum or a text.
///
/// The readers convert from whatever is held: numbers as by a C++ cast, but clamped to the range of the
/// result and with 0 for NaN; truth values as 0 and 1; enums as their index; a text as the number that it
/// spells out. They throw `Exception` for a text that is no number.
class VORN_API Variant {
public:
  /// What is held.
  enum class Type { Int, Int64, Double, Bool, Enum, String };

  /// A whole number.
  Variant(int value = 0) : value_(value) {}
  /// A whole number beyond the range of `int`.
  Variant(std::int64_t value) : value_(value) {}
  /// A floating-point number.
  Variant(double value) : value_(value) {}
  /// The double of the same value.
  Variant(float value) : value_(static_cast<double>(value)) {}
  /// A truth value.
  Variant(bool value) : value_(value) {}
  /// A text.
  Variant(std::string value) : value_(std::move(value)) {}
  /// A text: a literal must not turn into a truth value.
  Variant(char const* value) : value_(std::string(value)) {}
  /// Holds a copy of the enum.
  Variant(IEnum const& value);

  /// What is held.
  Type type() const { return static_cast<Type>(value_.index()); }

  /// The value as a number, cut towards zero.
  int toInt() const;
  /// The value as a number, cut towards zero.
  std::int64_t toInt64() const;
  /// The value as a number, rounded to single precision.
  float toFloat() const;
  /// The value as a number.
  double toDouble() const;
  /// A text is true as "true" or any number but 0, and false as "false" or 0.
  bool toBool() const;
  /// The value in words; floating-point numbers with the fewest digits that give the same value again.
  std::string toString() const;
  /// @throws Exception when no enum is held
  IEnum const& toEnum() const;

  /// Same type and same value; enums are equal when class and index are.
  friend VORN_API bool operator==(Variant const& a, Variant const& b);
  /// The opposite of `==`.
  friend bool operator!=(Variant const& a, Variant const& b) { return !(a == b); }

private:
  std::variant<int, std::int64_t, double, bool, std::shared_ptr<IEnum const>, std::string> value_;
};

} // namespace vorn
