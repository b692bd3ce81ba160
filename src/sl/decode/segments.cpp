// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/segments.hpp"

#include <cstring>

#include "core/simd.hpp"

namespace vorn::mv::sl {

namespace {

int firstWith(uchar const* row, int x, int n, uchar value) {
  void const* const found = x < n ? std::memchr(row + x, value, static_cast<std::size_t>(n - x)) : nullptr;
  return found != nullptr ? static_cast<int>(static_cast<uchar const*>(found) - row) : n;
}

/// How many runs of `value` a row has.
VORN_TARGET_CLONES
int countRuns(uchar const* row, int n, uchar value) {
  int count = n > 0 && row[0] == value ? 1 : 0;
  for (int x = 1; x < n; ++x) {
    count += (row[x] == value) & (row[x - 1] != value) ? 1 : 0;
  }
  return count;
}

/// Makes room for all runs of a map: counting them costs less than a list that grows, in time and memory.
void makeRoom(std::vector<Run>& runs, cv::Size size, MarkedRow const& marks, uchar value) {
  std::size_t count = 0;
  for (int y = 0; y < size.height; ++y) {
    count += static_cast<std::size_t>(countRuns(marks(y), size.width, value));
  }
  runs.clear();
  if (runs.capacity() < count) {
    runs = std::vector<Run>();
    runs.reserve(count);
  }
}

/// Joins the runs of one row, from `current` on, with those of the row above that they touch.
void joinRows(std::vector<Run>& runs, int above, int current, int reach) {
  int const end = static_cast<int>(runs.size());
  int const firstOfRow = current;
  while (above < firstOfRow && current < end) {
    Run const& upper = runs[static_cast<std::size_t>(above)];
    Run const& lower = runs[static_cast<std::size_t>(current)];
    if (upper.begin < lower.end + reach && lower.begin < upper.end + reach) {
      joinRuns(runs, above, current);
    }
    if (upper.end < lower.end) {
      ++above;
    } else {
      ++current;
    }
  }
}

} // namespace

void findSegments(cv::Size size, MarkedRow const& marks, uchar value, Neighbourhood neighbourhood,
                  std::vector<Run>& runs) {
  int const reach = neighbourhood == Neighbourhood::Eight ? 1 : 0;
  auto const other = static_cast<uchar>(255 - value);
  makeRoom(runs, size, marks, value);
  int above = 0;
  for (int y = 0; y < size.height; ++y) {
    uchar const* const row = marks(y);
    int const current = static_cast<int>(runs.size());
    for (int x = firstWith(row, 0, size.width, value); x < size.width;) {
      int const end = firstWith(row, x, size.width, other);
      runs.push_back({y, x, end, static_cast<int>(runs.size())});
      x = firstWith(row, end, size.width, value);
    }
    joinRows(runs, above, current, reach);
    above = current;
  }
  settleRuns(runs);
}

} // namespace vorn::mv::sl
