// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <iosfwd>
#include <string>

#include <vorn/core/export.hpp>

namespace vorn {

/// A stopwatch.
class VORN_API Timer {
public:
  /// Starts it, as construction does.
  void tic() { start_ = std::chrono::steady_clock::now(); }
  /// The milliseconds since the start.
  double toc() const;
  /// The milliseconds since the start, as in "12.3 ms".
  std::string toString() const;

private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// Writes `timer.toString()`.
VORN_API std::ostream& operator<<(std::ostream& stream, Timer& timer);

} // namespace vorn
