// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>
#include <optional>

#include "calib/target/dot_outline.hpp"

namespace vorn::mv {

struct DotLevels;

/// Directions around a dot in which the ground and the rim are looked at.
constexpr std::size_t shadeDirections = 16;

/// What the ground just outside a dot has above its plane, by direction: the edge of a shadow that passes
/// there leaves no plane.
class GroundShade {
public:
  /// Grey levels that change linearly with the distance from the dot's middle, pixels.
  struct Ray {
    double distance = 0;
    double excess = 0; ///< at this distance
    double slope = 0;

    double at(double r) const { return excess + slope * (r - distance); }
  };
  using Rays = std::array<Ray, shadeDirections>;

  explicit GroundShade(Rays const& rays) : rays_(rays) {}

  /// At (x, y) from the dot's middle, grey levels.
  double at(double x, double y) const;

private:
  Rays rays_;
};

/// The shade around a bright dot whose ground is nowhere so bright that its rim would be lost; nothing where
/// it is, or where too little of the ground is in view.
///
/// @param image  H x W CV_8UC1 or CV_32FC1
/// @param levels with the plane that the ground mostly lies on
std::optional<GroundShade> measureShade(cv::Mat const& image, cv::Point2d const& centre,
                                        Ellipse const& outline, double reach, double halfWidth,
                                        DotLevels const& levels);

/// Whether the rim of a dot of about this outline runs along an ellipse all around. What covers a part of the
/// dot, however much its grey resembles a shadow's, leaves its own edge there.
///
/// @param image     H x W CV_8UC1 or CV_32FC1
/// @param outline   of the dot's area
/// @param halfWidth of the band along the outline that holds the rim, pixels
bool isRimElliptic(cv::Mat const& image, cv::Point2d const& centre, Ellipse const& outline, double halfWidth,
                   DotLevels const& levels);

} // namespace vorn::mv
