// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "measure/ticks.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

namespace vorn::mv {

namespace {

std::string text(double value, std::chars_format format, int digits) {
  std::array<char, 64> buffer{};
  auto const end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, format, digits);
  return end.ec == std::errc() ? std::string(buffer.data(), end.ptr) : "?";
}

std::string withDigits(double value, int digits) {
  return text(value == 0.0 ? 0.0 : value, std::chars_format::general, digits);
}

} // namespace

std::string shortNumber(double value) {
  constexpr int digits = 6;
  return withDigits(value, digits);
}

Ticks ticksOf(double low, double high, int most) {
  double const raw = (high - low) / std::max(most, 1);
  double const decade = std::pow(10.0, std::floor(std::log10(raw)));
  double step = decade;
  for (double const factor : {1.0, 2.0, 5.0, 10.0}) {
    step = factor * decade;
    if (std::floor(high / step) - std::ceil(low / step) + 1.0 <= most) {
      break;
    }
  }
  // Numbers too large or too small to write out get an exponent.
  double const largest = std::max(std::abs(low), std::abs(high));
  bool const isPlain = largest < 1e6 && step >= 1e-5;
  int const decimals = std::max(0, static_cast<int>(-std::floor(std::log10(step) + 1e-9)));
  // As many digits as tell neighbours apart.
  constexpr int fewestDigits = 6;
  int const digits =
      std::clamp(static_cast<int>(std::floor(std::log10(largest)) - std::floor(std::log10(step) + 1e-9)) + 1,
                 fewestDigits, std::numeric_limits<double>::max_digits10);
  Ticks ticks;
  constexpr double slack = 1e-9; // an end that is a multiple but for rounding
  for (double i = std::ceil(low / step - slack); i <= high / step + slack && ticks.values.size() < 1000;
       i += 1.0) {
    double const value = i * step + 0.0;
    ticks.values.push_back(value);
    ticks.labels.push_back(isPlain ? text(value, std::chars_format::fixed, decimals)
                                   : withDigits(value, digits));
  }
  return ticks;
}

Ticks namedTicks(std::vector<std::string> const& names, double low, double high, int most) {
  auto const step = static_cast<std::size_t>(std::max(1.0, std::ceil((high - low) / std::max(most, 1))));
  Ticks ticks;
  for (std::size_t i = 0; i < names.size(); i += step) {
    auto const place = static_cast<double>(i);
    if (place >= low && place <= high) {
      ticks.values.push_back(place);
      ticks.labels.push_back(names[i]);
    }
  }
  return ticks;
}

} // namespace vorn::mv
