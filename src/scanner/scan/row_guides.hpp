// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/matx.hpp>

#include "scanner/scan/triangulation.hpp"

namespace vorn::mv::sl {

/// Four numbers at a whole coordinate, and what they change by up to the next.
struct Step {
  float at[4];
  float step[4];
};

Step stepOf(cv::Vec4f const& at, cv::Vec4f const& next);

/// What leads from camera rays to the projector's rows, for all columns: two steps each, those of the numbers
/// along and those across (see the source).
std::vector<Step> rowGuides(TriangulationSetup const& setup);

} // namespace vorn::mv::sl
