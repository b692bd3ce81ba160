// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "sim/rig.hpp"
#include "sim/scene.hpp"
#include "sim/target.hpp"

/// The rig and the parts that the demonstration, the examples and many tests use.
namespace vorn::sim {

/// A camera of 1280 x 960 and a projector of 912 x 570 pixels, 200 mm apart, looking at a field of 440 x 330
/// mm some 560 mm away, both with strong lens distortion. Here and below `divisor` divides all pixel counts,
/// for quick tests: the field stays the same, its pixels get coarser.
Rig demoRig(int divisor = 1);

/// The demonstration rig with a projector of as many pixels as make `ratio` camera pixels to one of the
/// projector's, in the middle of the field; the field and the camera stay the same.
Rig demoRigSampled(double ratio, int divisor = 1);

/// The projector of the demonstration rig and a camera on its other side. The world's frame is still that of
/// the demonstration rig's camera, so both rigs see the same scene.
Rig demoSecondRig(int divisor = 1);

/// The camera of the demonstration rig and a second one 170 mm beside it.
StereoRig demoStereoRig(int divisor = 1);

/// The camera of the demonstration rig and a laser above it that draws a level line.
LaserRig demoLaserRig(int divisor = 1);

/// Labels of the demonstration scene's objects.
enum DemoLabel { BackPlane = 1, SphereA, SphereB, Bar, LowStep, HighStep, Relief, CheckerPlate, Rod };

/// A ball bar, a step block, a free-form relief, a plate of two albedos and a thin rod before a plane.
Scene demoScene();

/// The demonstration scene, all of it polished: highlights on every curved part.
Scene shinyScene();

/// Rods, spheres and boxes of many sizes and albedos, close together before a plane.
Scene clutterScene();

/// A target of 21 x 15 dots, pitch 15 mm.
Target demoTarget();

/// The same ground with rows of dots that are set off in turn: 10 dots in each of 15 rows, 15 mm apart.
Target demoStaggeredTarget();

/// A chessboard of 18 x 13 inner corners and squares of 15 mm, as large as the target of dots.
Target demoChessboard();

/// Twelve poses of that target in the rig's field, tilted up to 32 degrees, at different distances and
/// turned.
std::vector<Pose> demoTargetPoses();

/// The same poses of the middle of another target.
std::vector<Pose> demoTargetPoses(Target const& target);

} // namespace vorn::sim
