// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/utility.hpp>

namespace vorn {

/// Runs `body(firstRow, endRow)` over [0, rows) split into row ranges, in parallel within this call.
///
/// The split depends on the number of threads, so a body must give each row the same result whatever range it
/// comes in: no sums across rows, no state carried from row to row.
template <class Body>
void parallelRows(int rows, Body const& body) {
  if (rows > 0) {
    cv::parallel_for_(cv::Range(0, rows), [&body](cv::Range const& range) { body(range.start, range.end); });
  }
}

} // namespace vorn
