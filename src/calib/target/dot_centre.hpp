// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>
#include <optional>

#include "calib/target/dot_levels.hpp"

namespace vorn::mv {

/// What a dot is expected to look like.
struct DotShape {
  /// Takes the unit circle to the dot's outline about its centre, pixels.
  cv::Matx22d outline;
  /// How far the bare ground around it reaches, as a multiple of the outline.
  double reach = 2.1;
  /// How the light changes across the dot, as a share of its contrast a pixel, where that is known better
  /// than so small a dot tells by itself.
  std::optional<cv::Vec2d> lightSlope = std::nullopt;
};

/// A bright dot as it stands in the image. Pixels, grey levels.
struct DotMeasurement {
  /// Centre of area of the dot's image; `fitEdge` refines it.
  cv::Point2d centre;
  double area = 0;
  /// What the image's noise does to the area, one standard deviation: over the band along the edge, and by
  /// the levels of dot and ground, which all of the band is compared with.
  double areaNoise = 0;
  DotLevels levels;
  /// Standard deviation of the blur at its edge.
  double blur = 0;
};

/// Measures one bright dot near `start` from the grey levels along its edge.
///
/// Dot and ground are each taken as a plane of grey levels, so that uneven light does not shift the centre;
/// every pixel of a band along the outline counts by where it lies between the two. Pixels inside the band
/// count in full and those outside not at all, so that their noise does not enter.
///
/// @param image H x W CV_8UC1 or CV_32FC1
/// @param halfWidth of the band, pixels; less is used where the dot or its surroundings leave less room
/// @return nothing where there is no whole dot: cut by the image border, by the edge of the light or by
/// something
///         in front of it, or of too little contrast
std::optional<DotMeasurement> measureDot(cv::Mat const& image, cv::Point2d const& start,
                                         DotShape const& shape, double halfWidth);

} // namespace vorn::mv
