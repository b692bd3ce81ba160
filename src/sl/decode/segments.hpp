// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

namespace vorn::mv::sl {

/// Pixels [begin, end) of one row that belong to one segment.
struct Run {
  int row;
  int begin;
  int end;
  int segment; ///< index of the segment's first run
};

enum class Neighbourhood { Four, Eight };

/// Connected segments of the pixels of `map` that have `value`, as runs in row order.
///
/// Every run's `segment` is the index of the first run of its segment. Memory grows with the number of runs,
/// not of pixels.
/// @param map H x W, each pixel 0 or 255
void findSegments(cv::Mat_<uchar> const& map, uchar value, Neighbourhood neighbourhood,
                  std::vector<Run>& runs);

/// Sets the segments of fewer than `minSize` 4-connected pixels to 0.
/// @param runs is working memory
void removeSmallSegments(cv::Mat_<uchar>& kept, int minSize, std::vector<Run>& runs);

} // namespace vorn::mv::sl
