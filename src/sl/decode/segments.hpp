// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include "core/progress.hpp"
#include "core/runs.hpp"

namespace vorn::mv::sl {

enum class Neighbourhood { Four, Eight };

/// The marks of a row, 255 for pixels of the map and 0 for others: in memory of its own, or written to
/// `room`, which is as long as a row. Called from several threads.
using MarkedRow = std::function<uchar const*(int row, uchar* room)>;

/// Connected segments of the pixels that have the mark `value`, as runs in row order.
///
/// Every run's `segment` is the index of the first run of its segment. Memory grows with the number of runs,
/// not of pixels.
/// @param marks is asked for every row twice
void findSegments(cv::Size size, MarkedRow const& marks, uchar value, Neighbourhood neighbourhood,
                  std::vector<Run>& runs, Progress const& progress = {});

} // namespace vorn::mv::sl
