// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/number_text.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>
#include <system_error>

namespace vorn::graphic {
namespace {

bool isDigit(char character) {
  return static_cast<unsigned char>(character - '0') < 10;
}

/// Takes digits into `digits` as long as they fit, and counts them all.
char const* takeDigits(char const* text, std::uint64_t& digits, int& count) {
  char const* const begin = text;
  while (isDigit(*text)) {
    digits =
        digits * 10 + static_cast<std::uint64_t>(*text - '0'); // wraps for more than 19; the caller sees it
    ++text;
  }
  count += static_cast<int>(std::min<std::ptrdiff_t>(text - begin, 1000));
  return text;
}

/// The spellings of old C libraries, which `std::from_chars` does not know; null when `text` is none of them.
template <class Float>
char const* parseOldSpelling(char const* text, char const* end, bool negative, Float& value) {
  struct Spelling {
    std::string_view text;
    Float value;
  };
  using Limits = std::numeric_limits<Float>;
  constexpr std::array<Spelling, 4> spellings{{{"1.#INF", Limits::infinity()},
                                               {"1.#QNAN", Limits::quiet_NaN()},
                                               {"1.#SNAN", Limits::quiet_NaN()},
                                               {"1.#IND", Limits::quiet_NaN()}}};
  std::string_view const rest(text, static_cast<std::size_t>(end - text));
  for (Spelling const& spelling : spellings) {
    if (rest.substr(0, spelling.text.size()) == spelling.text) {
      value = negative ? -spelling.value : spelling.value;
      text += spelling.text.size();
      while (text < end && *text == '0') { // the fill of "%f": 1.#INF00
        ++text;
      }
      return text;
    }
  }
  return nullptr;
}

/// Any number, by the standard library. `text` stands behind the sign.
template <class Float>
char const* parseSlowly(char const* text, char const* end, bool negative, Float& value) {
  if (text == end || *text == '-') {
    return nullptr;
  }
  if (char const* const after = parseOldSpelling(text, end, negative, value)) {
    return after;
  }
  Float magnitude = 0;
  std::from_chars_result const result = std::from_chars(text, end, magnitude);
  if (result.ec == std::errc::invalid_argument) {
    return nullptr;
  }
  if (result.ec == std::errc::result_out_of_range) {
    // Too large or too small? A number that a double holds tells by itself, one beyond that by its exponent.
    double wide = 0;
    if (std::from_chars(text, end, wide).ec == std::errc::result_out_of_range) {
      std::string_view const number(text, static_cast<std::size_t>(result.ptr - text));
      std::size_t const exponent = number.find_first_of("eE");
      bool const tiny = exponent != number.npos ? number.substr(exponent + 1, 1) == "-" : number[0] == '0';
      wide = tiny ? 0 : std::numeric_limits<double>::infinity();
    }
    magnitude = wide > 1 ? std::numeric_limits<Float>::infinity() : Float(0);
  }
  value = negative ? -magnitude : magnitude;
  return result.ptr;
}

constexpr int mostPowers = 22; // 10^22 is the largest power of ten that a double holds exactly
constexpr std::array<double, mostPowers + 1> powersOfTen = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                            1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                            1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

/// digits * 10^exponent, rounded once to double and from there to float. False where that could differ from
/// rounding once to float, or where the steps are not exact.
bool scaleExactly(std::uint64_t digits, int exponent, float& value) {
  constexpr std::uint64_t largestExact = std::uint64_t{1} << 53;
  if (digits > largestExact || exponent < -mostPowers || exponent > mostPowers) {
    return false;
  }
  // Digits and power are exact doubles, so that the one operation on them is correctly rounded (Clinger
  // 1990).
  double const power = powersOfTen[static_cast<std::size_t>(exponent < 0 ? -exponent : exponent)];
  double const wide =
      exponent < 0 ? static_cast<double>(digits) / power : static_cast<double>(digits) * power;
  if (digits != 0 && (wide < double{std::numeric_limits<float>::min()} || wide > 1e38)) {
    return false; // subnormal or overflowing
  }
  // A second rounding changes the result only when the first one ended half-way between two floats.
  std::uint64_t bits = 0;
  std::memcpy(&bits, &wide, sizeof bits);
  constexpr std::uint64_t droppedBits = (std::uint64_t{1} << 29) - 1;
  constexpr std::uint64_t halfWay = std::uint64_t{1} << 28;
  if ((bits & droppedBits) == halfWay) {
    return false;
  }
  value = static_cast<float>(wide);
  return true;
}

} // namespace

char const* parseFloat(char const* text, char const* end, float& value) {
  bool const negative = *text == '-';
  if (negative || *text == '+') {
    ++text;
  }
  constexpr int mostDigits = 19; // what 64 bits hold
  std::uint64_t digits = 0;
  int digitCount = 0;
  char const* after = takeDigits(text, digits, digitCount);
  int exponent = 0;
  if (*after == '.') {
    int const integerDigits = digitCount;
    after = takeDigits(after + 1, digits, digitCount);
    exponent = integerDigits - digitCount;
  }
  if (digitCount == 0 || digitCount > mostDigits || *after == '#') {
    return parseSlowly(text, end, negative, value);
  }
  if (*after == 'e' || *after == 'E') {
    char const* power = after + 1;
    bool const negativePower = *power == '-';
    if (negativePower || *power == '+') {
      ++power;
    }
    std::uint64_t powerDigits = 0;
    int powerCount = 0;
    char const* const behind = takeDigits(power, powerDigits, powerCount);
    if (powerCount == 0 || powerCount > 3) {
      return parseSlowly(text, end, negative, value);
    }
    exponent += negativePower ? -static_cast<int>(powerDigits) : static_cast<int>(powerDigits);
    after = behind;
  }
  float magnitude = 0;
  if (!scaleExactly(digits, exponent, magnitude)) {
    return parseSlowly(text, end, negative, value);
  }
  value = negative ? -magnitude : magnitude;
  return after;
}

char const* parseDouble(char const* text, char const* end, double& value) {
  bool const negative = *text == '-';
  return parseSlowly(negative || *text == '+' ? text + 1 : text, end, negative, value);
}

char* putFloat(char* to, float value) {
  // The shortest form of a float has at most 9 digits, a sign, a point and an exponent: it always fits.
  return std::to_chars(to, to + longestFloat, value).ptr;
}

char* putDouble(char* to, double value) {
  return std::to_chars(to, to + longestDouble, value).ptr;
}

char* putFloats(char* to, cv::Vec3f const& values) {
  to = putFloat(to, values[0]);
  *to++ = ' ';
  to = putFloat(to, values[1]);
  *to++ = ' ';
  return putFloat(to, values[2]);
}

char* putDoubles(char* to, cv::Vec3d const& values) {
  to = putDouble(to, values[0]);
  *to++ = ' ';
  to = putDouble(to, values[1]);
  *to++ = ' ';
  return putDouble(to, values[2]);
}

} // namespace vorn::graphic
