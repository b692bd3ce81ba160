// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/types.hpp>

#include "sim/rig.hpp"
#include "sim/scene.hpp"

namespace vorn::sim {

/// What a camera sees at one position of its image.
struct CameraSample {
  SurfacePoint point;
  double albedo = 0;
};

/// Follows the camera ray through an image position. The albedo is averaged over a pixel's share `width` x
/// `width` around it. Returns whether the ray meets anything.
bool look(Camera const& camera, Pose const& world_from_cam, Scene const& scene, cv::Point2d const& pixel,
          double width, CameraSample& sample);

/// Light of a projector at a point, for a pattern value of 1 before blur.
struct ProjectorLight {
  cv::Point2d pixel;
  /// Blur at this distance, projector pixels.
  double sigma = 0;
  /// 0 in shadow, on surfaces turned away, and where the projector does not reach.
  double gain = 0;
};

/// Light reaches `margin` pixels beyond the projector's image.
ProjectorLight lightFrom(Projector const& projector, Pose const& proj_from_world, Scene const& scene,
                         CameraSample const& sample, cv::Vec3d const& camera_in_world, double margin);

/// Light of a laser at a point.
double lightFrom(Laser const& laser, Pose const& laser_from_world, Scene const& scene,
                 CameraSample const& sample);

} // namespace vorn::sim
