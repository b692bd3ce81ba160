// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <utility>
#include <vector>
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "core/parallel.hpp"
#include "core/runs.hpp"
#include "core/simd.hpp"
#include "pointcloud/grid_links.hpp"

namespace vorn::mv {

namespace {

constexpr uchar removedForGood = 255;
constexpr uchar deletedNow = 1;

VORN_TARGET_CLONES void removeOutsideZRange(float const* points, int count, float zMin, float zMax,
                                            uchar* state) {
  for (int i = 0; i < count; ++i) {
    float const z = points[3 * i + 2];
    bool const isOutside = (z < zMin) | (z > zMax);
    state[i] = state[i] == 0 && isOutside ? removedForGood : state[i];
  }
}

/// The same of places: z counts from `offset`, which floats need not hold.
VORN_TARGET_CLONES void removeOutsideFarZRange(float const* points, int count, double offset, double zMin,
                                               double zMax, uchar* state) {
  for (int i = 0; i < count; ++i) {
    double const z = static_cast<double>(points[3 * i + 2]) + offset;
    bool const isOutside = (z < zMin) | (z > zMax);
    state[i] = state[i] == 0 && isOutside ? removedForGood : state[i];
  }
}

/// Removes the present inner points of one row that have a step to a neighbour; `across[c]` is the step
/// between columns c and c + 1.
VORN_TARGET_CLONES void removeAtSteps(uchar const* above, uchar const* below, uchar const* across,
                                      int columns, uchar* state) {
  for (int column = 1; column < columns - 1; ++column) {
    bool const isStep = (above[column] | below[column] | across[column - 1] | across[column]) != 0;
    state[column] = state[column] == 0 && isStep ? removedForGood : state[column];
  }
}

/// Deletes the present inner points of one row that have an absent neighbour; the lower left one is not
/// asked.
VORN_TARGET_CLONES void peelRow(uchar const* above, uchar const* row, uchar const* below, int columns,
                                uchar* peeled) {
  for (int column = 1; column < columns - 1; ++column) {
    int const absent = above[column - 1] | above[column] | above[column + 1] | row[column - 1] |
                       row[column + 1] | below[column] | below[column + 1];
    peeled[column] = row[column] == 0 && absent != 0 ? deletedNow : row[column];
  }
}

/// The clusters of linked cells, as runs of present cells that follow each other, each linked to the next.
std::vector<Run> findClusters(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state,
                              float maxDistance) {
  DistanceLimit const limit(maxDistance);
  int const columns = points.cols;
  auto const width = static_cast<std::size_t>(columns);
  std::vector<Run> runs;
  std::vector<uchar> across(width);
  std::vector<uchar> down(width);
  std::vector<int> runAbove(width);
  std::vector<int> runHere(width);
  for (int row = 0; row < points.rows; ++row) {
    uchar const* const here = state[row];
    limit.compareNearer(points[row], points[row] + 1, columns - 1, across.data() + 1);
    for (int column = 0; column < columns; ++column) {
      if (here[column] != 0) {
        continue;
      }
      bool const continues =
          column > 0 && here[column - 1] == 0 && across[static_cast<std::size_t>(column)] != 0;
      if (!continues) {
        runs.push_back({row, column, column, static_cast<int>(runs.size())});
      }
      runs.back().end = column + 1;
      runHere[static_cast<std::size_t>(column)] = static_cast<int>(runs.size() - 1);
    }
    if (row > 0) {
      uchar const* const above = state[row - 1];
      limit.compareNearer(points[row - 1], points[row], columns, down.data());
      // Neighbouring columns mostly join the same two runs.
      std::pair<int, int> joined{0, 0};
      for (std::size_t column = 0; column < width; ++column) {
        if (above[column] == 0 && here[column] == 0 && down[column] != 0) {
          std::pair<int, int> const pair{runAbove[column], runHere[column]};
          if (pair != joined) {
            joinRuns(runs, pair.first, pair.second);
            joined = pair;
          }
        }
      }
    }
    runAbove.swap(runHere);
  }
  settleRuns(runs);
  return runs;
}

} // namespace

void PointCloud::filterByZRange(float zMin, float zMax) {
  checkSizes();
  parallelRows(points_.rows, [&](int firstRow, int endRow) {
    for (int row = firstRow; row < endRow; ++row) {
      if (offset_[2] == 0.0) {
        removeOutsideZRange(points_[row]->val, points_.cols, zMin, zMax, state_[row]);
      } else {
        removeOutsideFarZRange(points_[row]->val, points_.cols, offset_[2], static_cast<double>(zMin),
                               static_cast<double>(zMax), state_[row]);
      }
    }
  });
}

void PointCloud::filterByDz(float maxStep) {
  checkSizes();
  if (!organized_ || points_.rows < 3 || points_.cols < 3) {
    return;
  }
  DistanceLimit const limit(maxStep);
  int const columns = points_.cols;
  parallelRows(points_.rows - 2, [&](int firstRow, int endRow) {
    auto const width = static_cast<std::size_t>(columns);
    std::vector<uchar> above(width);
    std::vector<uchar> below(width);
    std::vector<uchar> across(width);
    limit.compareFarther(points_[firstRow], points_[firstRow + 1], columns, above.data());
    for (int row = firstRow + 1; row < endRow + 1; ++row) {
      limit.compareFarther(points_[row], points_[row + 1], columns, below.data());
      limit.compareFarther(points_[row], points_[row] + 1, columns - 1, across.data());
      removeAtSteps(above.data(), below.data(), across.data(), columns, state_[row]);
      above.swap(below);
    }
  });
}

void PointCloud::filterBorder(int width) {
  checkSizes();
  if (!organized_ || width <= 0) {
    return;
  }
  int const sides = std::min(width, points_.cols);
  for (int row = 0; row < points_.rows; ++row) {
    uchar* const state = state_[row];
    if (row < width || row >= points_.rows - width) {
      std::fill_n(state, points_.cols, removedForGood);
    } else {
      std::fill_n(state, sides, removedForGood);
      std::fill_n(state + points_.cols - sides, sides, removedForGood);
    }
  }
}

void PointCloud::filterOutlier() {
  checkSizes();
  if (!organized_ || isEmpty()) {
    return;
  }
  cv::Mat_<uchar> const before = state_.clone();
  parallelRows(points_.rows - 2, [&](int firstRow, int endRow) {
    for (int row = firstRow + 1; row < endRow + 1; ++row) {
      peelRow(before[row - 1], before[row], before[row + 1], points_.cols, state_[row]);
    }
  });
}

int PointCloud::filterSmallClusterOrganized(float maxDistance, int minClusterSize) {
  checkSizes();
  if (isEmpty() || !organized_) {
    return 0;
  }
  saveState();
  int removed = 0;
  forEachSmallRun(findClusters(points_, state_, maxDistance), minClusterSize, [&](Run const& run) {
    std::fill(state_[run.row] + run.begin, state_[run.row] + run.end, deletedNow);
    removed += run.end - run.begin;
  });
  calcBoundingBox();
  return removed;
}

} // namespace vorn::mv
