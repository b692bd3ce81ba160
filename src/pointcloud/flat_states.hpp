// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <opencv2/core/mat.hpp>
#include <vector>

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

/// Writes the cells back.
inline void storeStates(std::vector<uchar> const& flat, cv::Mat_<uchar>& states) {
  for (int row = 0; row < states.rows; ++row) {
    auto const first = flat.begin() + static_cast<std::ptrdiff_t>(row) * states.cols;
    std::copy(first, first + states.cols, states[row]);
  }
}

} // namespace vorn::mv
