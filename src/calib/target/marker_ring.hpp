// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>
#include <optional>

namespace vorn::mv {

/// How bright a dot's surroundings are where only a marker reaches, half way between the rims of an ordinary
/// dot and a marker: near 0 (as the ground) for an ordinary dot, near 1 (as the dot) for a marker. Blur
/// brings the two together but keeps their order, where areas of thresholded blobs lose it.
///
/// @param image  H x W CV_8UC1 or CV_32FC1, at least 2 x 2
/// @param centre of the dot, pixels
/// @param steps  to the next dots along both directions of the grid as columns, pixels
/// @param radius of an ordinary dot, pitches
/// @return nothing where no dot stands out
std::optional<double> markerRing(cv::Mat const& image, cv::Point2d const& centre, cv::Matx22d const& steps,
                                 double radius);

} // namespace vorn::mv
