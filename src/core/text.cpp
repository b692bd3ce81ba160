// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/text.hpp>

#include <algorithm>
#include <array>
#include <charconv>

#include <nlohmann/json.hpp>

namespace vorn {

namespace {
constexpr std::string_view blanks = " \t";
} // namespace

std::string removeSpaces(std::string_view text, bool all) {
  if (all) {
    std::string result(text);
    auto const isBlank = [](char c) { return blanks.find(c) != std::string_view::npos; };
    result.erase(std::remove_if(result.begin(), result.end(), isBlank), result.end());
    return result;
  }
  auto const first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) {
    return {};
  }
  return std::string(text.substr(first, text.find_last_not_of(blanks) - first + 1));
}

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> pieces;
  for (std::size_t start = 0;;) {
    auto const end = text.find(separator, start);
    pieces.emplace_back(text.substr(start, end - start));
    if (end == std::string_view::npos) {
      return pieces;
    }
    start = end + 1;
  }
}

std::string toString(nlohmann::json const& json) {
  return json.is_string() ? json.get<std::string>() : json.dump();
}

std::string toString(double value) {
  std::array<char, 32> buffer{};
  auto const result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
  return {buffer.data(), result.ptr};
}

} // namespace vorn
