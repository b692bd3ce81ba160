// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/demo.hpp"

#include <string>
#include <utility>

#include "sim/laser.hpp"
#include "sim/plain_object.hpp"

namespace vorn::sim {
namespace {

Device scaled(Device const& device, double divisor) {
  // The outer edge of pixel 0 lies at -0.5 and stays there.
  auto const shrink = [divisor](double centre) { return (centre + 0.5) / divisor - 0.5; };
  cv::Size const size = device.resolution();
  return {device.focal() / divisor,
          {shrink(device.centre().x), shrink(device.centre().y)},
          device.distortion(),
          {static_cast<int>(size.width / divisor), static_cast<int>(size.height / divisor)}};
}

/// A second camera of the same kind, with a lens and a sensor of its own.
Device secondDevice(int divisor) {
  return scaled(Device({1547.3, 1548.8}, {631.9, 486.4}, {-0.19, 0.11, -0.0005, 0.0007, -0.01}, {1280, 960}),
                divisor);
}

Object relief() {
  HeightField field;
  field.halfSize = {85, 58};
  field.bumps = {{-14, {-25, -5}, 22}, {-9, {38, 18}, 15}, {7, {30, -25}, 18}};
  field.waves = {{1.6, {0.8, 0.6}, 34, 0.4}, {0.5, {-0.6, 0.8}, 17, 1.1}};
  Object result = plainObject("relief", Relief, field, Pose::fromDegrees({92, 66, 560}, {-6, 5, 4}), 0.72);
  result.material.texture = Ripple{64, 0.12};
  return result;
}

Object checkerPlate() {
  Object result = plainObject("checker plate", CheckerPlate, Rectangle{{60, 52}},
                              Pose::fromDegrees({-112, 66, 556}, {9, -14, -5}), 0.78);
  result.material.texture = Checker{20, 0.34};
  return result;
}

Object shiny(Object object) {
  object.material.specular = 0.25;
  object.material.shininess = 80;
  return object;
}

/// Lights the whole field from above the camera.
Projector lamp() {
  Projector projector;
  projector.device = Device({60, 60}, {50, 50}, {}, {101, 101});
  projector.world_from_proj.translation = {40, -160, -30};
  projector.blurSlope = 0;
  projector.referenceDistance = projector.focus = 610;
  return projector;
}

} // namespace

Rig demoRig(int divisor) {
  Rig rig;
  rig.camera.device =
      Device({1552.4, 1550.9}, {644.3, 474.8}, {-0.21, 0.14, 0.0008, -0.0006, -0.03}, {1280, 960});
  rig.camera.sensor.exposure = 0.8;
  rig.projector.device =
      Device({1138.2, 1137.1}, {459.6, 289.1}, {-0.09, 0.05, 0.0005, 0.0008, 0.0}, {912, 570});
  rig.projector.world_from_proj = Pose::fromDegrees({198, -12, 18}, {-1.4, -19.6, 0.7});
  rig.projector.focus = 560;
  rig.projector.referenceDistance = 560;
  rig.camera.device = scaled(rig.camera.device, divisor);
  rig.projector.device = scaled(rig.projector.device, divisor);
  return rig;
}

Rig demoRigSampled(double ratio, int divisor) {
  Rig rig = demoRig(divisor);
  // The devices are about as far away from the field.
  double const own = rig.camera.device.focal().x / rig.projector.device.focal().x;
  rig.projector.device = scaled(rig.projector.device, ratio / own);
  return rig;
}

Rig demoSecondRig(int divisor) {
  Rig rig = demoRig(divisor);
  rig.camera.device = secondDevice(divisor);
  rig.camera.cam_from_world = Pose::fromDegrees({322, -6, 46}, {-0.4, -31.4, 0.5}).inverse();
  ++rig.camera.sensor.seed;
  return rig;
}

StereoRig demoStereoRig(int divisor) {
  Camera const left = demoRig(divisor).camera;
  Camera right = left;
  right.device = secondDevice(divisor);
  right.cam_from_world = Pose::fromDegrees({168, -5, 22}, {0.9, -16.5, 0.6}).inverse();
  right.sensor.seed = left.sensor.seed + 1;
  return {left, right, lamp()};
}

LaserRig demoLaserRig(int divisor) {
  LaserRig rig;
  rig.camera = demoRig(divisor).camera;
  rig.lasers = {laserTowards({6, -210, 12}, {0, 0, 560}, {1, 0.02, 0})};
  // A stripe of a little over two pixels.
  rig.lasers[0].sigma = 0.6;
  rig.lasers[0].strength = 1.2;
  rig.lamp = lamp();
  return rig;
}

Scene demoScene() {
  Pose const steps = Pose::fromDegrees({95, -78, 572}, {4, 12, -6});
  auto const on = [](Pose const& pose, cv::Vec3d const& offset) {
    return pose * Pose{cv::Matx33d::eye(), offset};
  };
  return Scene({
      plainObject("back plane", BackPlane, Rectangle{{205, 150}}, Pose::fromDegrees({0, 0, 590}, {3, -4, 0}),
                  0.66),
      shiny(plainObject("sphere A", SphereA, Sphere{27}, Pose{cv::Matx33d::eye(), {-140, -74, 530}}, 0.75)),
      shiny(plainObject("sphere B", SphereB, Sphere{27}, Pose{cv::Matx33d::eye(), {-40, -80, 541}}, 0.75)),
      // A cylinder's axis is y: turned to x it joins the spheres.
      plainObject("bar", Bar, Cylinder{4.5, 30}, Pose::fromDegrees({-90, -77, 535.5}, {0, 0, 90}), 0.6),
      plainObject("low step", LowStep, Box{{60, 42, 9}}, steps, 0.74),
      plainObject("high step", HighStep, Box{{30, 42, 9}}, on(steps, {30, 0, -12}), 0.74),
      relief(),
      checkerPlate(),
      plainObject("rod", Rod, Cylinder{1.6, 62}, Pose::fromDegrees({-18, 66, 548}, {0, 0, 12}), 0.7),
  });
}

Scene shinyScene() {
  std::vector<Object> objects = demoScene().objects();
  for (Object& object : objects) {
    object.material.specular = 0.8;
    object.material.shininess = 120;
  }
  return Scene(std::move(objects));
}

Scene clutterScene() {
  std::vector<Object> objects{plainObject("back plane", BackPlane, Rectangle{{205, 150}},
                                          Pose::fromDegrees({0, 0, 620}, {3, -4, 0}), 0.66)};
  constexpr double albedos[] = {0.75, 0.2, 0.5, 0.9, 0.1, 0.35};
  int count = 0;
  for (int row = -4; row <= 4; ++row) {
    for (int column = -6; column <= 6; ++column) {
      // Sizes, distances and albedos without a pattern that the eye finds.
      int const k = count++;
      double const size = 3.0 + (k * 7) % 11;
      Pose const pose =
          Pose::fromDegrees({30.0 * column + (k * 5) % 13, 30.0 * row + (k * 3) % 11, 490.0 + (k * 37) % 101},
                            {(k * 29) % 60 - 30.0, (k * 17) % 50 - 25.0, (k * 41) % 180 - 90.0});
      Shape shape = Sphere{size};
      if (k % 3 == 1) {
        shape = Cylinder{0.3 * size, 25};
      } else if (k % 3 == 2) {
        shape = Box{{2 * size, 1.5 * size, size}};
      }
      objects.push_back(
          plainObject("piece " + std::to_string(k), Rod + 1 + k, std::move(shape), pose, albedos[k % 6]));
    }
  }
  return Scene(std::move(objects));
}

Target demoTarget() {
  return Target();
}

Target demoStaggeredTarget() {
  Target target;
  target.grid.columns = {0, 20};
  target.grid.rows = {0, 15};
  target.grid.hasMarkers = false;
  target.grid.isStaggered = true;
  return target;
}

Target demoChessboard() {
  constexpr double side = 15;
  return chessboard({18, 13}, side);
}

std::vector<Pose> demoTargetPoses(Target const& target) {
  std::vector<Pose> poses = demoTargetPoses();
  for (Pose& pose : poses) {
    pose = withMiddleAt(pose, target);
  }
  return poses;
}

std::vector<Pose> demoTargetPoses() {
  return {
      Pose::fromDegrees({2, 3, 560}, {2, -3, 1}),        Pose::fromDegrees({-12, 8, 575}, {24, 4, 3}),
      Pose::fromDegrees({10, -6, 565}, {-26, -5, -4}),   Pose::fromDegrees({14, 4, 570}, {3, 27, 6}),
      Pose::fromDegrees({-16, -3, 568}, {-4, -24, -3}),  Pose::fromDegrees({6, -12, 535}, {14, 15, 12}),
      Pose::fromDegrees({-8, 12, 540}, {-15, 13, -14}),  Pose::fromDegrees({12, 9, 590}, {19, -20, 8}),
      Pose::fromDegrees({-6, -8, 595}, {-18, -17, 180}), Pose::fromDegrees({0, 4, 548}, {7, 10, 176}),
      Pose::fromDegrees({18, -2, 600}, {-5, 32, -7}),    Pose::fromDegrees({-14, 6, 605}, {30, -6, 5}),
  };
}

} // namespace vorn::sim
