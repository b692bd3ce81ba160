// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>
#include <optional>

#include "calib/target/dot_centre.hpp"

namespace vorn::mv {

/// The centre of a measured dot by least squares on the grey levels across its edge.
///
/// The dot is a disc seen as an ellipse, blurred by a Gaussian, between the planes of its dark and bright
/// levels. Centre and size are fitted, so each pixel counts by how steeply the edge rises there, which is how
/// much it knows about the centre: at the noise of a camera the result scatters half as much as a centre of
/// area.
///
/// @param image   H x W CV_8UC1 or CV_32FC1
/// @param outline takes the unit circle to the dot's outline about its centre, pixels; its size may be off
/// @param blur    standard deviation of the edge's blur, pixels
/// @return nothing where the fit leaves the measured centre by more than the edge is wide
std::optional<cv::Point2d> fitEdge(cv::Mat const& image, DotMeasurement const& dot,
                                   cv::Matx22d const& outline, double blur);

} // namespace vorn::mv
