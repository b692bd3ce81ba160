// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstdlib>
#include <iostream>

#include <opencv2/core/cvdef.h>

namespace {

/// A rig to be: lengths in mm, the fringes as the camera sees them.
struct RigPlan {
  double base = 0;           ///< from the camera to the projector
  double distance = 0;       ///< of the object along the camera's axis
  double projectorFocal = 0; ///< focal length of the projector in its pixels
  double amplitude = 0;      ///< of the fringes, grey levels
  double noise = 0;          ///< standard deviation of the camera's noise, grey levels
};

/// Standard deviation of a point in the middle of the field along its viewing ray, mm.
double expectedError(RigPlan const& plan) {
  constexpr double period = 4; // projector pixels of a column fringe
  double const column = period / (2 * CV_PI) * plan.noise / (plan.amplitude * std::sqrt(2.0));
  double const fromProjector = std::hypot(plan.base, plan.distance);
  double const sineOfAngle = plan.base / fromProjector; // between viewing ray and light
  return column * fromProjector / plan.projectorFocal / sineOfAngle;
}

} // namespace

// Usage: example_plan_rig BASE DISTANCE PROJECTOR_FOCAL AMPLITUDE NOISE
int main(int argc, char** argv) {
  if (argc != 6) {
    std::cerr << "BASE DISTANCE PROJECTOR_FOCAL AMPLITUDE NOISE are needed\n";
    return EXIT_FAILURE;
  }
  RigPlan const plan{std::atof(argv[1]), std::atof(argv[2]), std::atof(argv[3]), std::atof(argv[4]),
                     std::atof(argv[5])};
  std::cout << expectedError(plan) << " mm\n";
}
