// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include "calib/adjust/normal_equations.hpp"

namespace vorn::mv {

/// Of every dot of a target the dots around it, where they lie evenly to all sides; none elsewhere.
using DotNeighbours = std::vector<std::vector<int>>;
DotNeighbours neighboursOf(std::vector<cv::Point2f> const& target);

/// The noise of one coordinate of a dot in device 0 or 1, from what its residual differs by from the mean of
/// the dots around it: a bent target or a wrong lens changes them all alike. Single wrong dots do not count.
/// @return 0 where there are too few dots
double localNoise(Bundle const& bundle, DotNeighbours const& neighbours,
                  std::vector<std::vector<DotResidual>> const& residuals, int device);

/// The indices in their views of dots whose residual is longer than `limit` of its standard deviations, which
/// are as the dots' weights have them to each other and as the view's median has them, in device 0 or 1.
std::vector<std::vector<bool>> outliersOf(Bundle const& bundle,
                                          std::vector<std::vector<DotResidual>> const& residuals, int device,
                                          double limit);

} // namespace vorn::mv
