// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>

#include "sim/render.hpp"
#include "sim/rig.hpp"
#include "sim/scene.hpp"

namespace vorn::sim {

/// A laser at a place whose fan's middle ray goes through `target` and whose line lies along `line` there.
Laser laserTowards(cv::Vec3d const& position, cv::Vec3d const& target, cv::Vec3d const& line);

/// Grey levels (CV_32FC1) of a scene under laser fans, before noise, rounding and saturation.
cv::Mat exposeLasers(Camera const& camera, std::vector<Laser> const& lasers, Scene const& scene,
                     RenderOptions const& options = {});

/// The camera's image (CV_8UC1) of a scene under laser fans; `imageNumber` selects the noise.
cv::Mat captureLasers(Camera const& camera, std::vector<Laser> const& lasers, Scene const& scene,
                      int imageNumber = 0, RenderOptions const& options = {});

/// A point of a surface on a laser's plane.
struct LaserPoint {
  cv::Point2d pixel;
  cv::Vec3d x_in_cam;
};

/// Where a laser's plane meets the scene in the camera's view: on every column of the image when the line
/// runs across it, on every row when it runs down, from top left on. Points in shadow are left out.
std::vector<LaserPoint> laserTruth(Camera const& camera, Laser const& laser, Scene const& scene);

} // namespace vorn::sim
