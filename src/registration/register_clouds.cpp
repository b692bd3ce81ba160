// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <sstream>
#include <vorn/mv/registration/registration.hpp>

#include "core/error.hpp"
#include "registration/surface_registration.hpp"

namespace vorn::mv {

namespace {

constexpr std::size_t fewestPoints = 50;
/// Views of one part differ in size, but not by this.
constexpr double mostSizeRatio = 30.0;
/// Samples of the first and of the second pass; the last one takes all.
constexpr double firstSamples = 4000.0;
constexpr double secondSamples = 60000.0;

template <class Value>
[[noreturn]] void refuse(char const* name, Value value, char const* bound) {
  std::ostringstream text;
  text << name << " is " << value << ", not " << bound;
  throw error(text.str(), "registerClouds");
}

void checkSettings(RegistrationSettings const& settings) {
  if (!(settings.maxDistance >= 0.0)) {
    refuse("maxDistance", settings.maxDistance, "at least 0");
  }
  if (!(settings.maxNormalAngle > 0.0 && settings.maxNormalAngle <= 90.0)) {
    refuse("maxNormalAngle", settings.maxNormalAngle, "above 0 .. 90");
  }
  if (settings.maxIterations < 1 || settings.maxIterations > 1000) {
    refuse("maxIterations", settings.maxIterations, "1 .. 1000");
  }
  if (settings.maxSamples != 0 && settings.maxSamples < 100) {
    refuse("maxSamples", settings.maxSamples, "0 or at least 100");
  }
  if (!(settings.minOverlap >= 0.0 && settings.minOverlap <= 1.0)) {
    refuse("minOverlap", settings.minOverlap, "0 .. 1");
  }
  for (double const value : settings.targetFromSource.val) {
    if (!std::isfinite(value)) {
      refuse("A value of targetFromSource", value, "finite");
    }
  }
}

void checkCloud(SurfaceMatcher const& cloud, char const* name) {
  if (cloud.usableCount() < fewestPoints) {
    std::ostringstream text;
    text << "The " << name << " has " << cloud.usableCount() << " points with a normal, fewer than "
         << fewestPoints;
    throw error(text.str(), "registerClouds");
  }
}

void checkSizes(double source, double target) {
  double const ratio = std::max(source / target, target / source);
  if (!(ratio < mostSizeRatio)) {
    std::ostringstream text;
    text << "The source measures " << source << ", the target " << target
         << " (RMS distance from their middles): too different for one part; are they in different units?";
    throw error(text.str(), "registerClouds");
  }
}

int strideFor(double points, double samples) {
  return std::max(1, static_cast<int>(std::lround(std::sqrt(points / samples))));
}

} // namespace

Registration registerClouds(PointCloud const& source, PointCloud const& target,
                            RegistrationSettings const& settings, Observer* observer) {
  checkSettings(settings);
  source.checkSizes();
  target.checkSizes();
  Progress const progress(observer);
  PointCloud const targetCloud = withNormals(target, progress);
  SurfaceMatcher const matcher(targetCloud);
  checkCloud(matcher, "target");
  progress.at("normals", 0.15);
  PointCloud sourceCloud = withNormals(source, progress);
  // Only for its figures; built without its tree it would be another class.
  SurfaceMatcher const sourceFigures(sourceCloud);
  checkCloud(sourceFigures, "source");
  checkSizes(sourceFigures.size(), matcher.size());

  SurfaceRegistration registration(matcher, settings, progress);
  auto const points = static_cast<double>(sourceFigures.usableCount());
  double const wanted = settings.maxSamples > 0 ? std::min(points, 1.0 * settings.maxSamples) : points;
  constexpr double growth = 3.0;
  for (double const leading : {firstSamples, secondSamples}) {
    if (leading * growth < wanted &&
        !registration.run(sampleEvenly(sourceCloud, strideFor(points, leading)), false)) {
      return registration.result();
    }
  }
  registration.run(sampleEvenly(sourceCloud, strideFor(points, wanted)), true);
  Registration result = registration.result();
  result.resolution = std::max(matcher.resolution(), sourceFigures.resolution());
  return result;
}

std::string Registration::freeShape() const {
  auto const translations =
      std::count_if(freeMotions.begin(), freeMotions.end(),
                    [](FreeMotion const& motion) { return motion.kind == FreeMotion::Kind::Translation; });
  auto const rotations = static_cast<std::ptrdiff_t>(freeMotions.size()) - translations;
  struct Shape {
    std::ptrdiff_t translations;
    std::ptrdiff_t rotations;
    char const* name;
  };
  constexpr Shape shapes[] = {{0, 0, ""},         {2, 1, "plane"},     {0, 3, "sphere"},
                              {1, 1, "cylinder"}, {1, 0, "extrusion"}, {0, 1, "revolution"}};
  for (Shape const& shape : shapes) {
    if (shape.translations == translations && shape.rotations == rotations) {
      return shape.name;
    }
  }
  return "point";
}

} // namespace vorn::mv
