// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

#include <vorn/core/export.hpp>
#include <vorn/core/variant.hpp>

namespace vorn {

/// Settings, log and messages of the whole process. Every call may come from any thread.
class VORN_API System {
public:
  /// The value stored for `key`, or `fallback` when the key was never set.
  static Variant get(std::string const& key, Variant fallback);
  /// Stores a value for `key`, in place of one that was stored before.
  static void set(std::string const& key, Variant value);

  /// Writes one message to the log sink.
  static void log(std::string const& text);
  /// Directs the log; an empty function restores the default, which writes to standard error.
  /// The sink is called by one thread at a time and must not log itself.
  static void setLogSink(std::function<void(std::string const&)> sink);

  /// Says what a call did ("Removed 19 points.\n"), whether debug output is on or not. Everything that the
  /// library prints unasked goes this way.
  static void message(std::string const& text);
  /// Directs the messages; an empty function restores the default, which writes to standard output. To keep
  /// the library silent: `System::setMessageSink([](std::string const&) {})`.
  /// The sink is called by one thread at a time and must not send messages itself.
  static void setMessageSink(std::function<void(std::string const&)> sink);
};

} // namespace vorn
