// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdio>
#include <string>

namespace vorn::tools {

/// Values in a form of std::printf, at most 1000 characters: tables for people, in columns.
template <class... Values>
std::string printed(char const* form, Values... values) {
  std::array<char, 1001> text{};
  std::snprintf(text.data(), text.size(), form, values...);
  return text.data();
}

} // namespace vorn::tools
