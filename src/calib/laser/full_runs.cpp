// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/laser/full_runs.hpp"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "core/simd.hpp"

namespace vorn::mv {

namespace {

VORN_TARGET_CLONES
std::uint8_t greatest(std::uint8_t const* row, int n) {
  std::uint8_t most = 0;
  for (int x = 0; x < n; ++x) {
    most = std::max(most, row[x]);
  }
  return most;
}

/// Lengths of the runs that are open at each place.
using Open = std::vector<int>;

void alongRow(std::uint8_t const* row, int n, int line, int full, std::vector<FullPlace>& found) {
  int length = 0;
  for (int x = 0; x <= n; ++x) {
    if (x < n && row[x] >= full) {
      ++length;
    } else if (length > 0) {
      found.push_back({line, {x - length, x}});
      length = 0;
    }
  }
}

} // namespace

std::vector<FullPlace> findFullRuns(cv::Mat const& bytes, bool perColumn, int full, int least, int most) {
  std::vector<FullPlace> found;
  Open open(static_cast<std::size_t>(bytes.cols), 0);
  bool isAnyOpen = false;
  for (int y = 0; y <= bytes.rows; ++y) {
    std::uint8_t const* const row = y < bytes.rows ? bytes.ptr(y) : nullptr;
    bool const isAnyFull = row != nullptr && greatest(row, bytes.cols) >= full;
    if (!perColumn) {
      if (isAnyFull) {
        alongRow(row, bytes.cols, y, full, found);
      }
      continue;
    }
    if (!isAnyFull && !isAnyOpen) {
      continue;
    }
    isAnyOpen = false;
    for (int x = 0; x < bytes.cols; ++x) {
      int& length = open[static_cast<std::size_t>(x)];
      if (isAnyFull && row[x] >= full) {
        ++length;
        isAnyOpen = true;
      } else if (length > 0) {
        found.push_back({x, {y - length, y}});
        length = 0;
      }
    }
  }
  auto const isOther = [&](FullPlace const& place) {
    int const length = place.run.end - place.run.first;
    return length < least || length > most;
  };
  found.erase(std::remove_if(found.begin(), found.end(), isOther), found.end());
  std::sort(found.begin(), found.end(), [](FullPlace const& a, FullPlace const& b) {
    return std::pair(a.line, a.run.first) < std::pair(b.line, b.run.first);
  });
  return found;
}

} // namespace vorn::mv
