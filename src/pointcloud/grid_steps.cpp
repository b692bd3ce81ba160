// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pointcloud/grid_steps.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

#include "core/median.hpp"
#include "pointcloud/point_access.hpp"

namespace vorn::mv {

namespace {

constexpr float stepOverSpacing = 6.0F;
constexpr int sampledPairs = 10000;

/// The median distance between cells and their neighbours one row or column on; 0 without any.
float medianSpacing(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state, int rowStep,
                    int columnStep) {
  int const rows = points.rows - rowStep;
  int const columns = points.cols - columnStep;
  std::vector<float> distances;
  double const pairs = static_cast<double>(std::max(rows, 0)) * std::max(columns, 0);
  int const stride = std::max(1, static_cast<int>(std::sqrt(pairs / sampledPairs)));
  for (int row = 0; row < rows; row += stride) {
    for (int column = 0; column < columns; column += stride) {
      cv::Vec3f const& here = points(row, column);
      cv::Vec3f const& there = points(row + rowStep, column + columnStep);
      if (state(row, column) == 0 && state(row + rowStep, column + columnStep) == 0 && isFinite(here.val) &&
          isFinite(there.val)) {
        cv::Vec3f const difference = there - here;
        distances.push_back(difference.dot(difference));
      }
    }
  }
  return std::sqrt(medianAmong(distances));
}

} // namespace

GridSteps gridStepsOf(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state, float maxStep) {
  if (maxStep > 0.0F) {
    return {maxStep, maxStep};
  }
  float const alongRow = medianSpacing(points, state, 0, 1);
  float const alongColumn = medianSpacing(points, state, 1, 0);
  // A grid of one row, or one where the neighbours one way are never present, has the other way's spacing.
  return {stepOverSpacing * (alongRow > 0.0F ? alongRow : alongColumn),
          stepOverSpacing * (alongColumn > 0.0F ? alongColumn : alongRow)};
}

float gridSpacingOf(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state) {
  float const alongRow = medianSpacing(points, state, 0, 1);
  float const alongColumn = medianSpacing(points, state, 1, 0);
  return alongRow > 0.0F && alongColumn > 0.0F ? std::min(alongRow, alongColumn)
                                               : std::max(alongRow, alongColumn);
}

} // namespace vorn::mv
