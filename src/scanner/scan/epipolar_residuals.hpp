// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>

#include "core/progress.hpp"
#include "scanner/scan/triangulation.hpp"

namespace vorn::mv {

/// Both coordinates of pixels with their standard deviations, which may be empty: projector pixels.
struct ProjectorMaps {
  cv::Mat_<float> column;
  cv::Mat_<float> row;
  cv::Mat_<float> sigmaColumn;
  cv::Mat_<float> sigmaRow;
};

/// How far coordinates are from the line on which the projector sees a pixel's ray.
struct EpipolarResiduals {
  cv::Mat_<float> distance; ///< with its sign, projector pixels; NaN where a coordinate is missing
  cv::Mat_<float> sigma;    ///< what the coordinates' noise makes of it; empty without
};

/// @param projectorMatrix of the projector, which scales distances to its pixels
EpipolarResiduals epipolarResiduals(sl::TriangulationSetup const& setup, cv::Matx33d const& projectorMatrix,
                                    ProjectorMaps const& maps, Progress const& progress);

} // namespace vorn::mv
