// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/exception.hpp>

#include <utility>

namespace vorn {

Exception::Exception(std::string message, char const* function, int line, char const* file)
    : message_(std::move(message)), function_(function != nullptr ? function : ""), line_(line),
      file_(file != nullptr ? file : ""), what_(message_) {
  std::string context = function_;
  if (!file_.empty()) {
    context += (context.empty() ? "" : ", ") + file_;
  }
  if (line_ > 0) {
    context += ":" + std::to_string(line_);
  }
  if (!context.empty()) {
    what_ += " (" + context + ")";
  }
}

Exception::~Exception() = default;

} // namespace vorn
