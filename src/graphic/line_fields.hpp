// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vorn::graphic {

/// The blank-separated fields of one line, taken one after another.
/// The character behind the line must be '\n', as `FileReader::nextLine` provides it.
class LineFields {
public:
  explicit LineFields(std::string_view line) : next_(line.data()), end_(line.data() + line.size()) {}

  /// True when nothing but blanks is left.
  bool atEnd() {
    skipBlanks();
    return next_ == end_;
  }
  /// The next field; empty at the end of the line.
  std::string_view word();
  /// Takes a field that is `lowerCase` in upper or lower case letters; takes nothing when it is another.
  bool keyword(std::string_view lowerCase);
  /// Takes a field that is a number, as `parseFloat` reads it; takes nothing when it is none.
  bool number(float& value);
  /// The same as the nearest double.
  bool number(double& value);
  /// Takes a field that is an integer of at most 64 bits; takes nothing when it is none.
  bool integer(std::int64_t& value);
  /// All that is left, without blanks around it.
  std::string_view rest();

private:
  static bool isBlank(char character) {
    return character == ' ' || (character >= '\t' && character <= '\r' && character != '\n');
  }
  void skipBlanks() {
    while (isBlank(*next_)) {
      ++next_;
    }
  }
  template <class Float>
  bool take(char const* (*parse)(char const*, char const*, Float&), Float& value);
  bool endsField(char const* place) const { return place == end_ || isBlank(*place); }

  char const* next_;
  char const* end_;
};

/// A piece of a file for a message: in quotes, cut where it is long, '?' for what cannot be printed.
std::string quoted(std::string_view text);

} // namespace vorn::graphic
