// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/system.hpp>

#include <iostream>
#include <map>
#include <mutex>
#include <utility>

namespace vorn {

namespace {

/// Where texts go: to a function that the host gave, or to a stream.
class Channel {
public:
  explicit Channel(std::ostream& stream) : stream_(stream) {}

  void write(std::string const& text) {
    std::lock_guard<std::mutex> const lock(mutex_);
    if (sink_) {
      sink_(text);
    } else {
      stream_ << text << std::flush;
    }
  }

  void direct(std::function<void(std::string const&)> sink) {
    std::lock_guard<std::mutex> const lock(mutex_);
    sink_ = std::move(sink);
  }

private:
  std::mutex mutex_;
  std::ostream& stream_;
  std::function<void(std::string const&)> sink_;
};

struct State {
  std::mutex mutex;
  std::map<std::string, Variant> values;
  Channel log{std::cerr};
  Channel messages{std::cout};
};

State& state() {
  // Never destroyed: threads may still log while the process ends.
  static State& instance = *new State;
  return instance;
}

} // namespace

Variant System::get(std::string const& key, Variant fallback) {
  std::lock_guard<std::mutex> const lock(state().mutex);
  auto const value = state().values.find(key);
  return value != state().values.end() ? value->second : std::move(fallback);
}

void System::set(std::string const& key, Variant value) {
  std::lock_guard<std::mutex> const lock(state().mutex);
  state().values[key] = std::move(value);
}

void System::log(std::string const& text) {
  state().log.write(text);
}

void System::setLogSink(std::function<void(std::string const&)> sink) {
  state().log.direct(std::move(sink));
}

void System::message(std::string const& text) {
  state().messages.write(text);
}

void System::setMessageSink(std::function<void(std::string const&)> sink) {
  state().messages.direct(std::move(sink));
}

} // namespace vorn
