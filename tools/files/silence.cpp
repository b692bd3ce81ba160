// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/silence.hpp"

#include <cstdio>
#include <mutex>

#include <fcntl.h>
#include <unistd.h>

namespace vorn::tools {

namespace {

std::mutex mutex;
int living = 0;
/// Where standard error led before the first of them; -1 when it was closed.
int before = -1;

} // namespace

Silence::Silence() {
  std::lock_guard const lock(mutex);
  if (living++ == 0) {
    std::fflush(stderr);
    before = dup(STDERR_FILENO);
    int const nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (before >= 0 && nowhere >= 0) {
      dup2(nowhere, STDERR_FILENO);
    }
    if (nowhere >= 0) {
      close(nowhere);
    }
  }
}

Silence::~Silence() {
  std::lock_guard const lock(mutex);
  if (--living == 0 && before >= 0) {
    std::fflush(stderr);
    dup2(before, STDERR_FILENO);
    close(before);
  }
}

} // namespace vorn::tools
