// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "core/progress.hpp"

namespace vorn {

/// Passes what a job tells on to the progress of the whole that it is a part of: for calls that take an
/// observer.
class PartObserver : public Observer {
public:
  explicit PartObserver(Progress whole) : whole_(std::move(whole)) {}

  bool onProgress(std::string_view stage, double fraction) override {
    whole_.at(stage, fraction);
    return true;
  }

  /// This observer, or none where nobody watches the whole.
  Observer* ifWatched() { return whole_.isWatched() ? this : nullptr; }

private:
  Progress whole_;
};

/// Calls `body(first, end)` for pieces of [0, count) one after the other, between which the observer is
/// asked.
template <class Body>
void inPieces(std::size_t count, std::size_t piece, Progress const& progress, std::string_view stage,
              Body const& body) {
  std::size_t const size = progress.isWatched() ? std::max<std::size_t>(1, piece) : count;
  for (std::size_t first = 0; first < count; first += size) {
    progress.at(stage, static_cast<double>(first) / static_cast<double>(count));
    body(first, std::min(first + size, count));
  }
}

/// Resizes a vector in pieces, between which the observer is asked: the system takes its time to provide
/// memory.
template <class T>
void resizeInPieces(std::vector<T>& array, std::size_t count, Progress const& progress,
                    std::string_view stage) {
  constexpr std::size_t bytesAtOnce = std::size_t{1} << 23; // some milliseconds
  array.reserve(count);
  std::size_t const before = std::min(array.size(), count);
  inPieces(count - before, bytesAtOnce / sizeof(T), progress, stage,
           [&](std::size_t /*first*/, std::size_t end) { array.resize(before + end); });
  array.resize(count);
}

} // namespace vorn
