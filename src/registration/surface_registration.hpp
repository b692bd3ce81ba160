// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>
#include <vorn/mv/registration/registration.hpp>

#include "core/progress.hpp"
#include "registration/pair_equations.hpp"

namespace vorn::mv {

/// A cloud of which every present point has a normal as far as it can: the given one when it has normals,
/// else a copy with normals turned to the frame's origin.
PointCloud withNormals(PointCloud const& cloud, Progress const& progress);

/// The point-to-plane minimisation behind `registerClouds`, on samples of growing number.
class SurfaceRegistration {
public:
  SurfaceRegistration(SurfaceMatcher const& target, RegistrationSettings const& settings,
                      Progress const& progress);

  /// Goes on from where the samples before have led.
  /// @param isLast these samples decide on the result: more iterations, until it stands still
  /// @return false when too few of them have a place
  bool run(SourceSamples const& samples, bool isLast);

  /// What came out of the last samples.
  Registration const& result() const { return result_; }

private:
  bool step(SourceSamples const& samples, double& stepOverUncertainty);
  bool findValidPairs(SourceSamples const& samples);
  void report(SourceSamples const& samples);

  SurfaceMatcher const& target_;
  RegistrationSettings const& settings_;
  Progress progress_;
  PairRule rule_;
  bool isSideKnown_ = false;
  double cutoff_ = 0.0;
  std::vector<SurfacePair> pairs_;
  PairEquations equations_;
  Registration result_;
};

} // namespace vorn::mv
