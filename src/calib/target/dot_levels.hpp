// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>
#include <optional>

#include "calib/target/dot_outline.hpp"
#include "calib/target/dot_shade.hpp"

namespace vorn::mv {

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
  /// How many pixels the planes of dot and ground are taken from.
  double coreCount = 0;
  double groundCount = 0;
  /// Of the ground, where the edge of a shadow passes the dot.
  std::optional<GroundShade> shade = std::nullopt;

  /// Where a grey level at `p` lies between the ground (0) and the dot (1).
  double relative(cv::Point2d const& p, double grey) const {
    double const x = p.x - origin.x;
    double const y = p.y - origin.y;
    double const shaded = shade ? shade->at(x, y) : 0.0;
    return (grey - ground.at(x, y) - shaded) / (contrast.at(x, y) - shaded);
  }
};

/// Mean of the four pixels around a position; outside the image that of the nearest ones.
///
/// @param image H x W CV_8UC1 or CV_32FC1, at least 2 x 2
double greyAround(cv::Mat const& image, cv::Point2d const& p);

/// Fits the planes of dot and ground, each from the pixels that are surely its own.
///
/// @param reach     how far the bare ground around the dot reaches, as a multiple of the outline
/// @param halfWidth pixels on either side of the outline that may belong to either
/// @param lightSlope change of the contrast a pixel, as a share of it, for dots too small to tell; where it
/// is
///        not known, that of the ground is taken for it as far as the ground is as bright
/// @return nothing where there is too little to see or too little contrast
std::optional<DotLevels> measureLevels(cv::Mat const& image, cv::Point2d const& centre,
                                       Ellipse const& outline, double reach, double halfWidth,
                                       std::optional<cv::Vec2d> const& lightSlope);

} // namespace vorn::mv
