// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <string>

#include <vorn/core/export.hpp>

namespace vorn {

/// The one exception type of the library.
///
/// By the library's convention `message` says what is wrong, `file` holds the short name of the function or
/// class that found it (the context), `function` is null and `line` is 0.
class VORN_API Exception : public std::exception {
public:
  /// @param message  what went wrong
  /// @param function the throwing function's name, or null
  /// @param line     the source line, or 0
  /// @param file     the source file's name, or the context; null counts as empty
  Exception(std::string message, char const* function, int line, char const* file);
  Exception(Exception const&) = default;
  Exception& operator=(Exception const&) = default;
  ~Exception() override;

  /// The message followed by the context in parentheses, where there is one.
  char const* what() const noexcept override { return what_.c_str(); }

  /// What went wrong, without the context.
  std::string const& message() const noexcept { return message_; }
  /// Empty when none was given.
  std::string const& function() const noexcept { return function_; }
  /// 0 when none was given.
  int line() const noexcept { return line_; }
  /// The context: the function or class that found it. Empty when none was given.
  std::string const& file() const noexcept { return file_; }

private:
  std::string message_;
  std::string function_;
  int line_;
  std::string file_;
  std::string what_;
};

} // namespace vorn
