// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>
#include <vector>

#include "sim/device.hpp"
#include "sim/target.hpp"

namespace vorn::sim {

/// Something flat in front of a target photograph: a finger, a sticker, another round thing. Image pixels.
struct Overlay {
  enum class Shape { Ellipse, Box };
  cv::RotatedRect outline;
  Shape shape = Shape::Ellipse;
  double albedo = 0.5;
};

/// A target photographed under plain light, with everything that makes photographs hard to read.
struct TargetPhoto {
  Device device;
  Target target;
  Pose cam_from_target;
  /// Grey level of albedo 1 in the middle of the image, above the black level.
  double white = 220;
  double blackLevel = 4;
  /// Relative change of the light from the left to the right side of the image and from top to bottom.
  cv::Vec2d shading;
  double backgroundAlbedo = 0.08;
  std::vector<Overlay> overlays;
  /// Standard deviation of the lens's blur, pixels, and of the noise, grey levels.
  double blur = 0.6;
  double noise = 0;
  std::uint64_t seed = 1;
  /// Of the image, 8 to 16; each beyond the eighth halves the step that grey levels are rounded to.
  int bits = 8;
};

/// The photograph, CV_8UC1, or CV_16UC1 where it has more bits. Edges of dots are drawn by the exact share of
/// each pixel that they cover.
cv::Mat render(TargetPhoto const& photo);

/// The dots that lie wholly in the picture and under no overlay, with the images of their centres; `margin`
/// pixels around them too.
std::vector<DotTruth> visibleDots(TargetPhoto const& photo, double margin = 0);

/// A target seen by a camera `distance` away that looks at a point of it: turned about the viewing direction
/// by `roll` and then tilted by `tilt` about the image's x axis after a turn of `tiltDirection`; degrees.
Pose viewOf(cv::Point2d const& pointOnTarget, double distance, double tilt, double tiltDirection,
            double roll);

} // namespace vorn::sim
