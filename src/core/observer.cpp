// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/observer.hpp>

#include <algorithm>
#include <mutex>
#include <string>

#include "core/progress.hpp"

namespace vorn {

Observer::~Observer() = default;

Cancelled::Cancelled(std::string_view stage)
    : Exception("Stopped while " + std::string(stage), nullptr, 0, "Observer") {}

Cancelled::~Cancelled() = default;

struct Progress::Watch {
  explicit Watch(Observer& watching) : observer(watching) {}

  Observer& observer;
  std::mutex mutex;
  double farthest = 0.0;
  bool stopped = false;
};

Progress::Progress(Observer* observer)
    : watch_(observer != nullptr ? std::make_shared<Watch>(*observer) : nullptr) {}

Progress Progress::part(double from, double to) const {
  Progress result = *this;
  result.from_ = from_ + from * (to_ - from_);
  result.to_ = from_ + to * (to_ - from_);
  return result;
}

void Progress::at(std::string_view stage, double fraction) const {
  if (!watch_) {
    return;
  }
  std::lock_guard<std::mutex> const lock(watch_->mutex);
  double const place = from_ + std::clamp(fraction, 0.0, 1.0) * (to_ - from_);
  watch_->farthest = std::max(watch_->farthest, place);
  // Once stopped the observer is not asked again: other threads of the job end by themselves.
  if (!watch_->stopped) {
    watch_->stopped = true;
    watch_->stopped = !watch_->observer.onProgress(stage, watch_->farthest);
  }
  if (watch_->stopped) {
    throw Cancelled(stage);
  }
}

} // namespace vorn
