// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <vorn/mv/registration/registration.hpp>

#include "registration/registration_checks.hpp"
#include "registration/registration_doubts.hpp"
#include "registration/surface_blocks.hpp"
#include "registration/surface_registration.hpp"

namespace vorn::mv {

namespace {

constexpr char const* context = "registerClouds";
/// Samples of the first and of the second pass; the last one takes all.
constexpr double firstSamples = 4000.0;
constexpr double secondSamples = 60000.0;

void checkSettings(RegistrationSettings const& settings) {
  checkPairing(settings, context);
  if (!(settings.minOverlap >= 0.0 && settings.minOverlap <= 1.0)) {
    refuse("minOverlap", settings.minOverlap, "0 .. 1", context);
  }
  checkStart(settings.targetFromSource, "targetFromSource", context);
}

int strideFor(double points, double samples) {
  return std::max(1, static_cast<int>(std::lround(std::sqrt(points / samples))));
}

/// What is registered of a cloud: its blocks where they are many and small enough, else its points, with
/// normals.
/// @param cloud a grid gets normals when its blocks are used
SurfaceBlocks surfaceOf(PointCloud& cloud, RegistrationSettings const& settings, Progress const& progress) {
  if (settings.maxSamples == 0 && isWorthBlocks(cloud)) {
    if (cloud.isOrganized() && cloud.isContinous()) {
      cloud = withNormals(cloud, progress);
    }
    SurfaceBlocks blocks = blocksOf(cloud, progress);
    // Lists have nothing between their blocks.
    bool const isFine = settings.maxDistance <= 0.0 || settings.maxDistance >= 2.0 * blocks.edge;
    if (isFine && areWhole(blocks, cloud)) {
      return blocks;
    }
  }
  SurfaceBlocks points;
  points.cloud = withNormals(cloud, progress);
  points.points = cloud.presentCount();
  return points;
}

/// Turns the figures of blocks into those of their points.
void tellOfPoints(SurfaceBlocks const& source, SurfaceBlocks const& target, double blocks,
                  Registration& result) {
  result.rms = std::hypot(result.rms, source.scatter, target.scatter);
  result.sigma = std::hypot(result.sigma, source.usualScatter, target.usualScatter);
  if (source.side > 1) {
    double const each = static_cast<double>(source.points) / blocks;
    result.matches = static_cast<std::size_t>(std::lround(each * static_cast<double>(result.matches)));
  }
}

} // namespace

Registration registerClouds(PointCloud const& source, PointCloud const& target,
                            RegistrationSettings const& settings, Observer* observer) {
  checkSettings(settings);
  source.checkSizes();
  target.checkSizes();
  Progress const progress(observer);
  PointCloud targetCloud = target;
  SurfaceBlocks targetSurface = surfaceOf(targetCloud, settings, progress);
  SurfaceMatcher matcher(targetSurface.cloud);
  matcher.readBetweenPoints(targetSurface.side > 1);
  checkCount(matcher.usableCount(), "The target", context);
  progress.at("normals", 0.15);
  PointCloud sourceCloud = source;
  SurfaceBlocks sourceSurface = surfaceOf(sourceCloud, settings, progress);
  // Only for its figures; built without its tree it would be another class.
  SurfaceMatcher const sourceFigures(sourceSurface.cloud);
  checkCount(sourceFigures.usableCount(), "The source", context);
  checkSizes(sourceFigures.size(), matcher.size(), context);

  SurfaceRegistration registration(matcher, settings, progress);
  auto const points = static_cast<double>(sourceFigures.usableCount());
  double const wanted = settings.maxSamples > 0 ? std::min(points, 1.0 * settings.maxSamples) : points;
  auto const samples = [&](double count) {
    return sampleEvenly(sourceSurface.cloud, strideFor(points, count), sourceSurface.side);
  };
  constexpr double growth = 3.0;
  for (double const leading : {firstSamples, secondSamples}) {
    if (leading * growth < wanted && !registration.run(samples(leading), false)) {
      return registration.result();
    }
  }
  registration.run(samples(wanted), true);
  Registration result = registration.result();
  result.resolution = std::max(matcher.resolution(), sourceFigures.resolution());
  if (result.isFound()) {
    tellOfPoints(sourceSurface, targetSurface, points, result);
    judge(sourceSurface.side > 1 ? sourceCloud : sourceSurface.cloud,
          targetSurface.side > 1 ? targetCloud : targetSurface.cloud, result);
  }
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
