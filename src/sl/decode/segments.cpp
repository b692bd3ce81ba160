// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/segments.hpp"

#include <algorithm>
#include <cstring>
#include <numeric>

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

/// Rows that one thread labels while others label those beside them.
constexpr int bandRows = 128;
constexpr int bandsBetweenAskings = 8;

/// Joins the runs [current, end) of one row with those of the row above, [above, current), that they touch.
void joinRows(std::vector<Run>& runs, int above, int current, int end, int reach) {
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

class SegmentSearch {
public:
  SegmentSearch(cv::Size size, MarkedRow const& marks, uchar value, Neighbourhood neighbourhood)
      : size_(size), marks_(marks), value_(value), reach_(neighbourhood == Neighbourhood::Eight ? 1 : 0),
        firstRun_(static_cast<std::size_t>(bands()) + 1, 0) {}

  int bands() const { return (size_.height + bandRows - 1) / bandRows; }

  void countRunsOf(int band) {
    std::vector<uchar> room(static_cast<std::size_t>(size_.width));
    int count = 0;
    for (int y = firstRow(band); y < firstRow(band + 1); ++y) {
      count += countRuns(marks_(y, room.data()), size_.width, value_);
    }
    firstRun_[static_cast<std::size_t>(band) + 1] = count;
  }

  /// Makes room for all runs: counting them costs less than a list that grows, in time and memory.
  void makeRoom(std::vector<Run>& runs) {
    std::partial_sum(firstRun_.begin(), firstRun_.end(), firstRun_.begin());
    auto const count = static_cast<std::size_t>(firstRun_.back());
    if (runs.capacity() < count) {
      runs = std::vector<Run>();
    }
    runs.resize(count);
  }

  /// Finds the runs of a band, and joins those of each row with the ones above in it.
  void label(int band, std::vector<Run>& runs) const {
    std::vector<uchar> room(static_cast<std::size_t>(size_.width));
    auto const other = static_cast<uchar>(255 - value_);
    int next = firstRun_[static_cast<std::size_t>(band)];
    int above = next;
    for (int y = firstRow(band); y < firstRow(band + 1); ++y) {
      uchar const* const row = marks_(y, room.data());
      int const current = next;
      for (int x = firstWith(row, 0, size_.width, value_); x < size_.width;) {
        int const end = firstWith(row, x, size_.width, other);
        runs[static_cast<std::size_t>(next)] = {y, x, end, next};
        ++next;
        x = firstWith(row, end, size_.width, value_);
      }
      joinRows(runs, above, current, next, reach_);
      above = current;
    }
  }

  /// Joins the last row of the band before with the first one of a band.
  void joinWithBefore(int band, std::vector<Run>& runs) const {
    int const seam = firstRun_[static_cast<std::size_t>(band)];
    auto const isInRow = [&](int run, int row) { return runs[static_cast<std::size_t>(run)].row == row; };
    int above = seam;
    while (above > 0 && isInRow(above - 1, firstRow(band) - 1)) {
      --above;
    }
    int end = seam;
    while (end < static_cast<int>(runs.size()) && isInRow(end, firstRow(band))) {
      ++end;
    }
    joinRows(runs, above, seam, end, reach_);
  }

private:
  int firstRow(int band) const { return std::min(band * bandRows, size_.height); }

  cv::Size size_;
  MarkedRow const& marks_;
  uchar value_;
  int reach_;
  std::vector<int> firstRun_; ///< of every band, and the number of all
};

} // namespace

void findSegments(cv::Size size, MarkedRow const& marks, uchar value, Neighbourhood neighbourhood,
                  std::vector<Run>& runs, Progress const& progress) {
  SegmentSearch search(size, marks, value, neighbourhood);
  parallelRows(search.bands(), bandsBetweenAskings, progress.part(0.0, 0.4), "segments",
               [&](int first, int end) {
                 for (int band = first; band < end; ++band) {
                   search.countRunsOf(band);
                 }
               });
  search.makeRoom(runs);
  parallelRows(search.bands(), bandsBetweenAskings, progress.part(0.4, 1.0), "segments",
               [&](int first, int end) {
                 for (int band = first; band < end; ++band) {
                   search.label(band, runs);
                 }
               });
  for (int band = 1; band < search.bands(); ++band) {
    search.joinWithBefore(band, runs);
  }
  settleRuns(runs);
}

} // namespace vorn::mv::sl
