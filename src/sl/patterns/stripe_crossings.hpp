// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>

#include "core/progress.hpp"

namespace vorn::mv::sl {

/// An image compared with what is half as bright, or with the dark.
struct ComparedImage {
  cv::Mat_<float> contrast; ///< -1 to 1 about an edge, from 0 on about a line; NaN where nothing can be told
  cv::Mat_<float> sigma;    ///< standard deviation of that
};

/// Where a row crosses an edge or a line: between columns, of a transposed image between rows.
struct Crossing {
  int row;
  float place; ///< columns
  float sigma;
};

enum class StripeForm { Edge, Line };

/// The crossings of all rows in their order, of edges and lines that run rather down than along the rows.
/// @param leastDeviations of the contrast on both sides of an edge, or of a line's height
std::vector<Crossing> findCrossings(ComparedImage const& image, StripeForm form, float leastDeviations,
                                    Progress const& progress);

} // namespace vorn::mv::sl
