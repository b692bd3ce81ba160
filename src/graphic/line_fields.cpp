// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/line_fields.hpp"

#include <charconv>
#include <system_error>

#include "graphic/number_text.hpp"

namespace vorn::graphic {

std::string_view LineFields::word() {
  skipBlanks();
  char const* const begin = next_;
  while (!endsField(next_)) {
    ++next_;
  }
  return {begin, static_cast<std::size_t>(next_ - begin)};
}

bool LineFields::keyword(std::string_view lowerCase) {
  skipBlanks();
  constexpr char lowerCaseBit = 0x20; // of the letters
  char const* next = next_;
  for (char const letter : lowerCase) {
    if ((*next | lowerCaseBit) != letter) { // so at the line's end too
      return false;
    }
    ++next;
  }
  if (!endsField(next)) {
    return false;
  }
  next_ = next;
  return true;
}

template <class Float>
bool LineFields::take(char const* (*parse)(char const*, char const*, Float&), Float& value) {
  skipBlanks();
  if (next_ == end_) {
    return false;
  }
  Float parsed = 0;
  char const* const after = parse(next_, end_, parsed);
  if (after == nullptr || !endsField(after)) {
    return false;
  }
  value = parsed;
  next_ = after;
  return true;
}

bool LineFields::number(float& value) {
  return take(parseFloat, value);
}

bool LineFields::number(double& value) {
  return take(parseDouble, value);
}

bool LineFields::integer(std::int64_t& value) {
  skipBlanks();
  char const* const begin = *next_ == '+' && next_[1] != '-' ? next_ + 1 : next_;
  std::int64_t parsed = 0;
  std::from_chars_result const result = std::from_chars(begin, end_, parsed);
  if (result.ec != std::errc() || !endsField(result.ptr)) {
    return false;
  }
  value = parsed;
  next_ = result.ptr;
  return true;
}

std::string_view LineFields::rest() {
  skipBlanks();
  char const* last = end_;
  while (last > next_ && isBlank(last[-1])) {
    --last;
  }
  std::string_view const text(next_, static_cast<std::size_t>(last - next_));
  next_ = end_;
  return text;
}

std::string quoted(std::string_view text) {
  constexpr std::size_t longest = 40;
  std::string result = "'";
  for (char const character : text.substr(0, longest)) {
    result += character >= ' ' && character <= '~' ? character : '?';
  }
  return result + (text.size() > longest ? "...'" : "'");
}

} // namespace vorn::graphic
