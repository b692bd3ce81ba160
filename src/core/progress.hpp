// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <memory>
#include <string_view>

#include <vorn/core/observer.hpp>

#include "core/parallel.hpp"

namespace vorn {

/// Where a job, or a part of one, tells how far it is and hears that it shall stop. Cheap to copy; without an
/// observer it costs nothing.
class Progress {
public:
  Progress() = default;
  explicit Progress(Observer* observer);

  bool isWatched() const { return watch_ != nullptr; }

  /// The progress of a part of this job that takes it from one fraction to another.
  Progress part(double from, double to) const;

  /// Says that `fraction` of this part is done, from any thread.
  /// @throws Cancelled when the observer stops the job, or has stopped it
  void at(std::string_view stage, double fraction) const;

private:
  struct Watch;
  std::shared_ptr<Watch> watch_;
  double from_ = 0.0;
  double to_ = 1.0;
};

/// As `parallelRows`, in bands of at most `bandRows` rows, between which the observer is asked.
template <class Body>
void parallelRows(int rows, int bandRows, Progress const& progress, std::string_view stage,
                  Body const& body) {
  int const band = progress.isWatched() ? std::max(1, bandRows) : std::max(1, rows);
  for (int first = 0; first < rows; first += band) {
    progress.at(stage, static_cast<double>(first) / rows);
    parallelRows(std::min(band, rows - first), [&](int begin, int end) { body(first + begin, first + end); });
  }
}

} // namespace vorn
