// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/core/library.hpp>

#include <atomic>

#include <vorn/core/system.hpp>

#include "core/error.hpp"

namespace vorn::mv {

namespace {

char const* const debugKey = "EnableDebugMode";
std::atomic<bool> gateOpen{false};

} // namespace

void Library::init() {
  gateOpen = true;
  System::set(debugKey, Variant(true));
  init_library();
}

bool Library::getEnableDebug() {
  return System::get(debugKey, Variant(true)).toBool();
}

void Library::assertValid() {
  if (!gateOpen) {
    throw error("The library is not started: call Library::init first", "Library");
  }
}

} // namespace vorn::mv
