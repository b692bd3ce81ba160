// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/target_finder.hpp>

#include <mutex>
#include <utility>

#include "core/error.hpp"

namespace vorn::mv {

namespace {

struct CharucoFinder {
  std::mutex mutex;
  std::shared_ptr<ITargetFinder const> finder;
};

/// The one place for the one kind that takes a finder.
CharucoFinder& charucoFinder() {
  static CharucoFinder instance;
  return instance;
}

} // namespace

ITargetFinder::~ITargetFinder() = default;

void setTargetFinder(TargetKind kind, std::shared_ptr<ITargetFinder const> finder) {
  if (kind != TargetKind::Charuco) {
    throw error("Targets of this kind are found without a finder", "setTargetFinder");
  }
  CharucoFinder& place = charucoFinder();
  std::lock_guard<std::mutex> const lock(place.mutex);
  place.finder = std::move(finder);
}

std::shared_ptr<ITargetFinder const> targetFinder(TargetKind kind) {
  if (kind != TargetKind::Charuco) {
    return nullptr;
  }
  CharucoFinder& place = charucoFinder();
  std::lock_guard<std::mutex> const lock(place.mutex);
  return place.finder;
}

} // namespace vorn::mv
