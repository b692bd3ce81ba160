// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn::mv {

/// The cells of a state matrix, numbered row by row like the points of an octree.
inline std::vector<uchar> flatStates(cv::Mat_<uchar> const& states) {
  std::vector<uchar> flat;
  flat.reserve(states.total());
  for (int row = 0; row < states.rows; ++row) {
    flat.insert(flat.end(), states[row], states[row] + states.cols);
  }
  return flat;
}

/// Opens a new undo generation in a cloud and deletes the points that are marked, which are present ones.
/// Returns their number.
inline int deleteMarked(PointCloud& cloud, std::vector<uchar> const& isMarked) {
  constexpr uchar deletedNow = 1;
  cloud.saveState();
  cv::Mat_<uchar>& states = cloud.state();
  int const columns = states.cols;
  int count = 0;
  for (int row = 0; row < states.rows; ++row) {
    uchar const* const marks = isMarked.data() + static_cast<std::ptrdiff_t>(row) * states.cols;
    uchar* const state = states[row];
    for (int column = 0; column < columns; ++column) {
      count += marks[column] != 0 ? 1 : 0;
      state[column] = marks[column] != 0 ? deletedNow : state[column];
    }
  }
  return count;
}

} // namespace vorn::mv
