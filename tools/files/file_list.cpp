// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/file_list.hpp"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include <vorn/core/exception.hpp>

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

bool isDigit(char c) {
  return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

/// The digits at a place, without leading zeros, and the place behind them.
std::string numberAt(std::string const& text, std::size_t& at) {
  std::size_t const start = at;
  while (at < text.size() && isDigit(text[at])) {
    ++at;
  }
  std::string const digits = text.substr(start, at - start);
  return digits.substr(std::min(digits.find_first_not_of('0'), digits.size()));
}

bool isPattern(std::string const& text) {
  return text.find_first_of("*?[") != std::string::npos;
}

/// Matches one character with the bracket that begins at `at`, and moves `at` behind it. A bracket that is
/// not closed is a character like any other.
bool matchesBracket(char c, std::string const& pattern, std::size_t& at) {
  std::size_t const first = at + 1 + (at + 1 < pattern.size() && pattern[at + 1] == '!' ? 1 : 0);
  std::size_t const closing = pattern.find(']', first + 1);
  if (closing == std::string::npos) {
    return pattern[at++] == c;
  }
  bool isIn = false;
  for (std::size_t i = first; i < closing; ++i) {
    if (i + 2 < closing && pattern[i + 1] == '-') {
      isIn = isIn || (pattern[i] <= c && c <= pattern[i + 2]);
      i += 2;
    } else {
      isIn = isIn || pattern[i] == c;
    }
  }
  bool const isNegated = first == at + 2;
  at = closing + 1;
  return isIn != isNegated;
}

/// What of `parts` from `next` on is found below `base`.
void collect(fs::path const& base, std::vector<fs::path> const& parts, std::size_t next,
             std::vector<std::string>& found) {
  if (next == parts.size()) {
    found.push_back(base.string());
    return;
  }
  std::string const part = parts[next].string();
  std::error_code absent;
  bool const isThere = fs::exists(base / part, absent); // "scan [1]" is a folder's name, too
  if (isThere) {
    collect(base / part, parts, next + 1, found);
  }
  if (isThere || !isPattern(part)) {
    return;
  }
  std::vector<std::string> names;
  std::error_code unreadable;
  for (auto const& entry : fs::directory_iterator(base.empty() ? fs::path(".") : base, unreadable)) {
    std::string const name = entry.path().filename().string();
    if ((name[0] != '.' || part[0] == '.') && matches(name, part)) {
      names.push_back(name);
    }
  }
  std::sort(names.begin(), names.end(), comesBefore);
  for (std::string const& name : names) {
    collect(base / name, parts, next + 1, found);
  }
}

} // namespace

bool comesBefore(std::string const& a, std::string const& b) {
  std::size_t i = 0;
  std::size_t k = 0;
  while (i < a.size() && k < b.size()) {
    if (isDigit(a[i]) && isDigit(b[k])) {
      std::string const left = numberAt(a, i);
      std::string const right = numberAt(b, k);
      if (left != right) {
        return left.size() != right.size() ? left.size() < right.size() : left < right;
      }
    } else if (a[i] != b[k]) {
      return a[i] < b[k];
    } else {
      ++i;
      ++k;
    }
  }
  bool const isSame = i == a.size() && k == b.size();
  return isSame ? a < b : i == a.size(); // "01" and "1" need an order too
}

bool matches(std::string const& name, std::string const& pattern) {
  std::size_t at = 0;
  std::size_t afterStar = std::string::npos; // where a `*` was met last, and what it took so far
  std::size_t taken = 0;
  for (std::size_t i = 0; i < name.size();) {
    bool isGood = false;
    std::size_t next = at;
    if (at < pattern.size() && pattern[at] == '*') {
      afterStar = ++at;
      taken = i;
      continue;
    }
    if (at < pattern.size()) {
      isGood = pattern[at] == '[' ? matchesBracket(name[i], pattern, next)
                                  : pattern[next++] == '?' || pattern[at] == name[i];
    }
    if (isGood) {
      at = next;
      ++i;
    } else if (afterStar != std::string::npos) {
      at = afterStar;
      i = ++taken;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', at) == std::string::npos;
}

std::vector<std::string> expandFiles(std::vector<std::string> const& arguments) {
  std::vector<std::string> files;
  for (std::string const& argument : arguments) {
    std::error_code absent;
    if (!isPattern(argument) || fs::exists(argument, absent)) {
      files.push_back(argument);
      continue;
    }
    fs::path const path = argument;
    fs::path const relative = path.relative_path();
    std::size_t const before = files.size();
    collect(path.root_path(), {relative.begin(), relative.end()}, 0, files);
    if (files.size() == before) {
      throw Exception("No file matches " + argument, nullptr, 0, "input");
    }
  }
  return files;
}

} // namespace vorn::tools
