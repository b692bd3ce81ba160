// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <exception>
#include <mutex>

#include <opencv2/core/utility.hpp>

namespace vorn::mv {

/// Runs `body(i)` for every i below `count`, several at a time and each as a task of its own, for pieces of
/// work that take different times. What the piece with the least number throws reaches the caller; no more
/// pieces are begun then.
template <class Body>
void forEachSideBySide(std::size_t count, Body const& body) {
  std::mutex mutex;
  std::exception_ptr failure;
  std::size_t failed = count;
  auto const mayBegin = [&](std::size_t i) {
    std::lock_guard<std::mutex> const lock(mutex);
    return i < failed;
  };
  auto const run = [&](std::size_t i) {
    try {
      body(i);
    } catch (...) {
      std::lock_guard<std::mutex> const lock(mutex);
      if (i < failed) {
        failed = i;
        failure = std::current_exception();
      }
    }
  };
  cv::parallel_for_(
      cv::Range(0, static_cast<int>(count)),
      [&](cv::Range const& range) {
        for (int i = range.start; i < range.end; ++i) {
          if (mayBegin(static_cast<std::size_t>(i))) {
            run(static_cast<std::size_t>(i));
          }
        }
      },
      static_cast<double>(count));
  if (failure) {
    std::rethrow_exception(failure);
  }
}

} // namespace vorn::mv
