// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "sim/device.hpp"
#include "sim/pose.hpp"
#include "sim/sensor.hpp"

namespace vorn::sim {

/// A camera: world -> pixels -> grey levels.
struct Camera {
  Device device;
  Pose cam_from_world;
  Sensor sensor;
  /// Standard deviation of the lens's blur, camera pixels.
  double blur = 0.55;
};

/// A projector. Its pixels are squares of even light, blurred by the lens: standard deviation
/// blur + blurSlope * |distance along the axis - focus| / focus in projector pixels, up to 7 pixels.
struct Projector {
  Device device;
  Pose world_from_proj;
  double blur = 0.6;
  double blurSlope = 1.5;
  double focus = 550;
  /// Distance, mm, at which the light has its nominal strength; elsewhere by the inverse square.
  double referenceDistance = 550;
  /// Light of a black pixel relative to a white one.
  double black = 0.01;
  /// Light = (pixel / 255) ^ gamma.
  double gamma = 1;
  /// Share of the pattern's mean that comes back to every point from its surroundings.
  double globalLight = 0;
};

/// A fan of laser light: the plane x = 0 of its frame, spreading around +z from the origin. Across the sheet
/// the light falls off as a Gaussian of standard deviation `sigma` (mm); its strength goes with the inverse
/// of the distance and is nominal at the reference distance.
struct Laser {
  Pose world_from_laser;
  double sigma = 0.25;
  double fanHalfAngleDegrees = 35;
  double referenceDistance = 550;
  double strength = 1;
};

/// A scanner: one camera and one projector. Where nothing else is said the camera's frame is the world's, so
/// world_from_proj = cam_from_proj.
struct Rig {
  Camera camera;
  Projector projector;
};

/// Two cameras that see the same field; the frame of camera 0 is the world's. The lamp is a projector that
/// shows white.
struct StereoRig {
  Camera camera0;
  Camera camera1;
  Projector lamp;
};

/// A camera, whose frame is the world's, and laser fans; the lamp shows a target for calibration.
struct LaserRig {
  Camera camera;
  std::vector<Laser> lasers;
  Projector lamp;
};

} // namespace vorn::sim
