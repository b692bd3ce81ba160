// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <limits>
#include <sstream>
#include <type_traits>

#include <CLI/Error.hpp>
#include <CLI/Validators.hpp>

namespace vorn::tools {

/// What an option's number must be. Every option that takes numbers has one of the checks below: the parser's
/// own let "nan" pass, and tell of a wrong number in bounds of three hundred digits.
struct NumberRule {
  double least = -std::numeric_limits<double>::infinity();
  double most = std::numeric_limits<double>::infinity();
  /// Whether `least` itself is refused.
  bool isAbove = false;
  bool isWhole = false;
  /// Whether the bounds are those of the option's type, told only of numbers beyond them.
  bool hasBoundsOfType = false;
  /// Whether "inf" and "nan" are left for the command to judge.
  bool mayBeInfinite = false;
};

/// What is wrong with a value, as "must be a number above 0 (decimal point, no unit), not '15,2'"; empty for
/// nothing.
std::string numberError(NumberRule const& rule, std::string const& value);

/// The check of a rule. `description` stands in the help text behind the kind of the value. That of whole
/// numbers is given to `transform`: it takes leading zeros off, which the parser takes for octal.
CLI::Validator numberCheck(NumberRule const& rule, std::string const& description = "");

/// A finite number.
CLI::Validator anyNumber();
/// A finite number above zero.
CLI::Validator aboveZero();
/// A finite number that is not below zero.
CLI::Validator notBelowZero();
/// A text that is a number, "inf" and "nan" among them: for commands that say themselves what is wrong with
/// its value.
CLI::Validator numeral();

/// A whole number that an option of this type holds, for `transform`.
template <class Number>
CLI::Validator wholeNumber() {
  NumberRule rule;
  rule.least = static_cast<double>(std::numeric_limits<Number>::min());
  rule.most = static_cast<double>(std::numeric_limits<Number>::max());
  rule.isWhole = true;
  rule.hasBoundsOfType = true;
  return numberCheck(rule);
}

/// A number from `least` to `most`, whole ones where these are of a whole type: then for
/// `transform`.
template <class Number>
CLI::Validator between(Number least, Number most) {
  std::ostringstream description;
  description << CLI::detail::type_name<Number>() << " in [" << least << " - " << most << ']';
  NumberRule rule;
  rule.least = static_cast<double>(least);
  rule.most = static_cast<double>(most);
  rule.isWhole = std::is_integral<Number>::value;
  return numberCheck(rule, description.str());
}

} // namespace vorn::tools
