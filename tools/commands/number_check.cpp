// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/number_check.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <optional>

namespace vorn::tools {

namespace {

bool isDigits(std::string const& text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](char each) { return each >= '0' && each <= '9'; });
}

/// A whole number as the parser takes it for decimal: it reads digits behind a zero as octal, and 0x as
/// hexadecimal. Empty for what is none.
std::string plainDigits(std::string const& value) {
  bool const hasSign = !value.empty() && (value[0] == '-' || value[0] == '+');
  std::string const digits = value.substr(hasSign ? 1 : 0);
  if (!isDigits(digits)) {
    return "";
  }
  std::size_t const first = std::min(digits.find_first_not_of('0'), digits.size() - 1);
  return (value[0] == '-' ? "-" : "") + digits.substr(first);
}

/// The number that a whole text is, as the parser reads it; none for anything else.
std::optional<double> numberOf(NumberRule const& rule, std::string const& value) {
  double number = 0;
  bool const isOne =
      rule.isWhole ? !plainDigits(value).empty() : value.find_first_of("xX") == std::string::npos;
  return isOne && CLI::detail::lexical_cast(value, number) ? std::optional<double>(number) : std::nullopt;
}

/// As short as it can be told: "0.1", "20000000".
std::string shortText(double number) {
  char text[32];
  std::snprintf(text, sizeof text, "%.12g", number);
  return text;
}

std::string boundsText(NumberRule const& rule, std::optional<double> const& number) {
  if (rule.hasBoundsOfType) {
    bool const isLess = number && *number < rule.least;
    return isLess                          ? " of at least " + shortText(rule.least)
           : number && *number > rule.most ? " of at most " + shortText(rule.most)
                                           : "";
  }
  std::string const least = shortText(rule.least);
  if (std::isfinite(rule.most)) {
    return " from " + least + " to " + shortText(rule.most);
  }
  if (!std::isfinite(rule.least)) {
    return "";
  }
  return rule.isAbove ? " above " + least : " of " + least + " or more";
}

/// Some options are kept as float, which holds no more.
bool isFinite(double number) {
  return std::abs(number) <= static_cast<double>(std::numeric_limits<float>::max());
}

} // namespace

std::string numberError(NumberRule const& rule, std::string const& value) {
  std::optional<double> const number = numberOf(rule, value);
  bool const isInside =
      number && *number >= rule.least && *number <= rule.most && !(rule.isAbove && *number == rule.least);
  if (number && (rule.mayBeInfinite || (isFinite(*number) && isInside))) {
    return "";
  }
  std::string const form = number || rule.isWhole ? std::string() : std::string(" (decimal point, no unit)");
  return std::string("must be a ") + (rule.isWhole ? "whole " : "") + "number" + boundsText(rule, number) +
         form + ", not '" + value + "'";
}

CLI::Validator numberCheck(NumberRule const& rule, std::string const& description) {
  return {[rule](std::string& value) {
            std::string error = numberError(rule, value);
            if (error.empty() && rule.isWhole) {
              value = plainDigits(value);
            }
            return error;
          },
          description};
}

CLI::Validator anyNumber() {
  return numberCheck({});
}

CLI::Validator aboveZero() {
  NumberRule rule;
  rule.least = 0;
  rule.isAbove = true;
  return numberCheck(rule, "POSITIVE");
}

CLI::Validator notBelowZero() {
  NumberRule rule;
  rule.least = 0;
  return numberCheck(rule, "NONNEGATIVE");
}

CLI::Validator numeral() {
  NumberRule rule;
  rule.mayBeInfinite = true;
  return numberCheck(rule);
}

} // namespace vorn::tools
