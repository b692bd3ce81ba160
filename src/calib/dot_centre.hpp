// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>
#include <optional>

namespace vorn::mv {

/// What a dot is expected to look like.
struct DotShape {
  /// Takes the unit circle to the dot's outline about its centre, pixels.
  cv::Matx22d outline;
  /// How far the bare ground around it reaches, as a multiple of the outline.
  double reach = 2.1;
};

/// Grey levels that change linearly: `value` at a place, and the change per pixel from there.
struct GreyPlane {
  double value = 0;
  double slopeX = 0;
  double slopeY = 0;

  double at(double x, double y) const { return value + slopeX * x + slopeY * y; }
};

/// Dot and ground around one place, about which the planes are given.
struct DotLevels {
  cv::Point origin;
  GreyPlane ground;
  GreyPlane contrast;   ///< of the dot above the ground
  double coreNoise = 0; ///< deviation of the dot's inside from a plane

  /// Where a grey level at `p` lies between the ground (0) and the dot (1).
  double relative(cv::Point2d const& p, double grey) const {
    double const x = p.x - origin.x;
    double const y = p.y - origin.y;
    return (grey - ground.at(x, y)) / contrast.at(x, y);
  }
};

/// A bright dot as it stands in the image. Pixels, grey levels.
struct DotMeasurement {
  /// Centre of area of the dot's image.
  cv::Point2d centre;
  double area = 0;
  DotLevels levels;
  /// Standard deviation of the blur at its edge.
  double blur = 0;
};

/// Mean of the four pixels around a position; outside the image that of the nearest ones.
///
/// @param image H x W CV_8UC1, at least 2 x 2
double greyAround(cv::Mat const& image, cv::Point2d const& p);

/// Measures one bright dot near `start` from the grey levels along its edge.
///
/// Dot and ground are each taken as a plane of grey levels, so that uneven light does not shift the centre;
/// every pixel of a band along the outline counts by where it lies between the two. Pixels inside the band
/// count in full and those outside not at all, so that their noise does not enter.
///
/// @param image H x W CV_8UC1
/// @param halfWidth of the band, pixels; less is used where the dot or its surroundings leave less room
/// @return nothing where there is no whole dot: cut by the image border, by the edge of the light or by
/// something
///         in front of it, or of too little contrast
std::optional<DotMeasurement> measureDot(cv::Mat const& image, cv::Point2d const& start,
                                         DotShape const& shape, double halfWidth);

} // namespace vorn::mv
