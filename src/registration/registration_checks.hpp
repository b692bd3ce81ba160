// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>

#include "core/error.hpp"
#include "geometry/rigid_motion.hpp"

namespace vorn::mv {

/// Points with a normal below which a cloud says nothing about a motion.
constexpr std::size_t fewestPoints = 50;

/// Views of one part differ in size, but not by this.
constexpr double mostSizeRatio = 30.0;

/// Throws what a setting or an input is, and what it should be.
template <class Value>
[[noreturn]] void refuse(std::string const& name, Value value, char const* bound, char const* function) {
  std::ostringstream text;
  text << name << " is " << value << ", not " << bound;
  throw error(text.str(), function);
}

/// Checks the settings that all registrations by corresponding points have.
template <class Settings>
void checkPairing(Settings const& settings, char const* function) {
  if (!(settings.maxDistance >= 0.0)) {
    refuse("maxDistance", settings.maxDistance, "at least 0", function);
  }
  if (!(settings.maxNormalAngle > 0.0 && settings.maxNormalAngle <= 90.0)) {
    refuse("maxNormalAngle", settings.maxNormalAngle, "above 0 .. 90", function);
  }
  if (settings.maxIterations < 1 || settings.maxIterations > 1000) {
    refuse("maxIterations", settings.maxIterations, "1 .. 1000", function);
  }
  if (settings.maxSamples != 0 && settings.maxSamples < 100) {
    refuse("maxSamples", settings.maxSamples, "0 or at least 100", function);
  }
}

/// Checks that a motion to begin with is rigid: the steps from it on are, and so the result would be none.
/// @param name of the motion, for the message
inline void checkStart(cv::Matx44d const& motion, std::string const& name, char const* function) {
  constexpr double tolerance = 1e-6;
  for (double const value : motion.val) {
    if (!std::isfinite(value)) {
      refuse("A value of " + name, value, "finite", function);
    }
  }
  if (!isRigidMotion(motion, tolerance)) {
    throw error(name + " is no rigid motion: its rotation has a determinant of " +
                    std::to_string(cv::determinant(motion.get_minor<3, 3>(0, 0))) +
                    " and must be orthonormal to 1e-6, its last row (0, 0, 0, 1)",
                function);
  }
}

/// Checks that a cloud has enough points with a normal.
/// @param name of the cloud, for the message
inline void checkCount(std::size_t count, std::string const& name, char const* function) {
  if (count < fewestPoints) {
    throw error(name + " has " + std::to_string(count) + " points with a normal, fewer than " +
                    std::to_string(fewestPoints),
                function);
  }
}

/// Checks that two clouds may be of one part.
/// @param source, target RMS distances of their points from their middles
inline void checkSizes(double source, double target, char const* function) {
  double const ratio = std::max(source / target, target / source);
  if (!(ratio < mostSizeRatio)) {
    std::ostringstream text;
    text << "The source measures " << source << ", the target " << target
         << " (RMS distance from their middles): too different for one part; are they in different units?";
    throw error(text.str(), function);
  }
}

} // namespace vorn::mv
