// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/number_check.hpp"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <optional>

namespace vorn::tools {

namespace {

/// The number that a whole text is, as the parser reads it; none for anything else.
std::optional<double> numberOf(NumberRule const& rule, std::string const& value) {
  if (rule.isWhole) {
    std::int64_t number = 0;
    return CLI::detail::lexical_cast(value, number) ? std::optional<double>(static_cast<double>(number))
                                                    : std::nullopt;
  }
  double number = 0;
  return CLI::detail::lexical_cast(value, number) ? std::optional<double>(number) : std::nullopt;
}

/// As short as it can be told: "0.1", "20000000".
std::string shortText(double number) {
  char text[32];
  std::snprintf(text, sizeof text, "%.12g", number);
  return text;
}

std::string boundsText(NumberRule const& rule) {
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
  return std::string("must be a ") + (rule.isWhole ? "whole " : "") + "number" + boundsText(rule) + form +
         ", not '" + value + "'";
}

CLI::Validator numberCheck(NumberRule const& rule, std::string const& description) {
  return {[rule](std::string const& value) { return numberError(rule, value); }, description};
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

CLI::Validator wholeNumber() {
  NumberRule rule;
  rule.isWhole = true;
  return numberCheck(rule);
}

CLI::Validator numeral() {
  NumberRule rule;
  rule.mayBeInfinite = true;
  return numberCheck(rule);
}

} // namespace vorn::tools
