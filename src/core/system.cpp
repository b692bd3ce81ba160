// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/system.hpp>

#include <iostream>
#include <map>
#include <mutex>
#include <utility>

namespace vorn {

namespace {

struct State {
  std::mutex mutex;
  std::map<std::string, Variant> values;
  std::mutex sinkMutex;
  std::function<void(std::string const&)> sink;
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
  std::lock_guard<std::mutex> const lock(state().sinkMutex);
  if (state().sink) {
    state().sink(text);
  } else {
    std::cerr << text << std::flush;
  }
}

void System::setLogSink(std::function<void(std::string const&)> sink) {
  std::lock_guard<std::mutex> const lock(state().sinkMutex);
  state().sink = std::move(sink);
}

} // namespace vorn
