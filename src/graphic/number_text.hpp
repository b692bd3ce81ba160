// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <charconv>
#include <opencv2/core/matx.hpp>

namespace vorn::graphic {

/// Reads the float nearest to a decimal number, in any locale's absence: a sign, digits, a point, an
/// exponent; or "nan", "inf" and "infinity" in upper or lower case, with a sign, and the spellings "1.#INF",
/// "1.#QNAN", "1.#IND". Beyond the largest float it gives infinity, below the smallest zero.
/// @param text  where the number begins; some character at or before `end` must end the number
/// @param value is left alone when there is no number
/// @return the character behind the number, or null when there is none
char const* parseFloat(char const* text, char const* end, float& value);

/// The same for the nearest double.
char const* parseDouble(char const* text, char const* end, double& value);

/// The most characters that `putFloat` writes.
constexpr int longestFloat = 16;

/// Writes the fewest digits that read back as the same float: "0.1", "1e-09", "nan", "-inf".
/// @return the end of what was written
char* putFloat(char* to, float value);
/// The most characters that `putDouble` writes.
constexpr int longestDouble = 24;

/// Writes the fewest digits that read back as the same double.
/// @return the end of what was written
char* putDouble(char* to, double value);
/// Writes three floats with blanks between them.
char* putFloats(char* to, cv::Vec3f const& values);
/// Writes three doubles with blanks between them.
char* putDoubles(char* to, cv::Vec3d const& values);

/// The most characters that `putInteger` writes for 32 bits.
constexpr int longestInteger = 11;

/// Writes an integer.
/// @return the end of what was written
template <class T>
char* putInteger(char* to, T value) {
  return std::to_chars(to, to + longestInteger, value).ptr;
}

} // namespace vorn::graphic
