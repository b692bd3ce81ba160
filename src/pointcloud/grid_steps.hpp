// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

namespace vorn::mv {

/// How far neighbours in the grid of an organized cloud may lie apart on one surface, per cell between them.
struct GridSteps {
  float alongRow = 0.0F;    ///< neighbours in one row
  float alongColumn = 0.0F; ///< neighbours in one column

  /// The same for neighbours that are `rows` and `columns` cells apart.
  float of(int rows, int columns) const {
    return alongColumn * static_cast<float>(rows) + alongRow * static_cast<float>(columns);
  }
};

/// The step that was asked for, or for 0 the one that stands out from the cloud's own distances: six times
/// their median, of at most some ten thousand pairs spread over the grid. A slope of 80 degrees is no step
/// then. (0, 0) when no two neighbours are present.
GridSteps gridStepsOf(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state, float maxStep);

/// The median distance of neighbours in the grid, the smaller one of rows and columns; 0 when no two are
/// present.
float gridSpacingOf(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state);

} // namespace vorn::mv
