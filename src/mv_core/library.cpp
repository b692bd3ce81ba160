// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/core/library.hpp>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

#include <vorn/core/system.hpp>

#include "core/error.hpp"
#include "mv_core/start_work.hpp"

namespace vorn::mv {

namespace {

char const* const debugKey = "EnableDebugMode";

enum class Gate { Closed, Opened, Ready };
std::atomic<Gate> gate{Gate::Closed};

struct StartWork {
  std::mutex mutex;
  std::vector<void (*)()> works;
};

StartWork& startWork() {
  static StartWork& instance = *new StartWork; // used while static variables come and go
  return instance;
}

/// Holds back those who pass the opened gate until `start` is through.
std::mutex& startMutex() {
  static std::mutex& mutex = *new std::mutex;
  return mutex;
}

} // namespace

namespace detail {

bool addStartWork(void (*work)()) {
  StartWork& start = startWork();
  std::lock_guard<std::mutex> const lock(start.mutex);
  if (std::find(start.works.begin(), start.works.end(), work) == start.works.end()) {
    start.works.push_back(work);
  }
  return true;
}

void awaitStartWork() {
  std::lock_guard<std::mutex> const lock(startWork().mutex);
}

} // namespace detail

void init_library() {
  StartWork& start = startWork();
  std::lock_guard<std::mutex> const lock(start.mutex);
  for (auto* const work : start.works) {
    work();
  }
}

void Library::init() {
  start(true);
}

void Library::start(bool debug) {
  std::lock_guard<std::mutex> const lock(startMutex());
  Gate const before = gate.load();
  if (before == Gate::Closed) {
    gate = Gate::Opened;
  }
  System::set(debugKey, Variant(debug));
  try {
    init_library();
  } catch (...) {
    gate = before;
    throw;
  }
  gate = Gate::Ready;
}

bool Library::getEnableDebug() {
  return System::get(debugKey, Variant(true)).toBool();
}

void Library::assertValid() {
  if (gate.load() == Gate::Opened) {
    std::lock_guard<std::mutex> const wait(startMutex());
  }
  if (gate.load() != Gate::Ready) {
    throw error("The library is not started: call Library::start or Library::init first", "Library");
  }
}

} // namespace vorn::mv
