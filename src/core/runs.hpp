// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include "core/joined_sets.hpp"

namespace vorn {

/// Pixels or cells [begin, end) of one row that belong to one segment.
struct Run {
  int row;
  int begin;
  int end;
  int segment; ///< index of the segment's first run; until `settleRuns`, of one that is no later than the run
};

/// Makes one segment of those that two runs belong to.
inline void joinRuns(std::vector<Run>& runs, int a, int b) {
  joinSets(a, b, [&](int i) -> int& { return runs[static_cast<std::size_t>(i)].segment; });
}

/// Gives every run the first one of its segment.
inline void settleRuns(std::vector<Run>& runs) {
  // A segment's index is never greater than its runs', so one pass in order settles them all.
  for (Run& run : runs) {
    run.segment = runs[static_cast<std::size_t>(run.segment)].segment;
  }
}

/// The runs of the segments of fewer than `minSize` pixels.
template <class Visit>
void forEachSmallRun(std::vector<Run> const& runs, int minSize, Visit const& visit) {
  std::vector<int> sizes(runs.size());
  for (Run const& run : runs) {
    sizes[static_cast<std::size_t>(run.segment)] += run.end - run.begin;
  }
  for (Run const& run : runs) {
    if (sizes[static_cast<std::size_t>(run.segment)] < minSize) {
      visit(run);
    }
  }
}

} // namespace vorn
