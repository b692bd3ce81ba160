// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>

#include "calib/laser/laser_profile.hpp"

namespace vorn::mv {

/// Where a column or row is full over some pixels.
struct FullPlace {
  int line;
  FullRun run;
};

/// The runs of full pixels of at least `least` and at most `most`, along each column (or row), in the order
/// of the lines and of their places.
/// @param bytes CV_8UC1
/// @param full  a pixel is full from here on
std::vector<FullPlace> findFullRuns(cv::Mat const& bytes, bool perColumn, int full, int least, int most);

} // namespace vorn::mv
